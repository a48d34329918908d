#include "bench/events.h"

#include "bench/program.h"

#include <stdexcept>

namespace velmox::bench {

namespace {

constexpr unsigned kThousand = 1000;
// In 100-nanosecond units: 20 microseconds from record to record, as on a busy machine.
constexpr std::uint64_t kTicksBetween = 200;
constexpr char kEventsFile[] = "C:\\bench-events.txt";

testbed::Bytes thousandAcceptedRecords()
{
    testbed::Bytes buffer;
    for (unsigned i = 0; i < kThousand; ++i) {
        testbed::appendRecord(buffer, record(u"Watched0"));
    }
    return buffer;
}

struct Stream
{
    double seconds;
    Str text;
};

// From the first bytes to the sentinel's event.
Stream read(OutputPipe &pipe)
{
    pipe.closeWriteEnd();
    pipe.readUntil(kSentinelMark);
    return {secondsBetween(pipe.firstTicks(), pipe.markTicks()), pipe.text()};
}

Stream runMonitor(unsigned thousands)
{
    testbed::TestDriver driver;
    driver.reset();
    driver.closeGate();
    driver.push(thousandAcceptedRecords(), thousands, kTicksBetween);
    driver.push(testbed::recordBuffer({record(kSentinelKey)}));
    OutputPipe pipe;
    const Program monitor(monitorCommand(), pipe.writeEnd(), watchedKeys(20));
    waitForPoll(driver);
    driver.openGate();
    return read(pipe);
}

Stream runReference()
{
    OutputPipe pipe;
    const Program writer(neighbourCommand("bench_reference", Str::concat("events ", kEventsFile)),
                         pipe.writeEnd());
    return read(pipe);
}

// The program that reads it writes text, and so gives each line feed its carriage return back.
void keepEvents(Str text)
{
    text.replaceAll("\r\n", "\n");
    const FileHandle file = createOutputFile(kEventsFile);
    DWORD written = 0;
    WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

} // namespace

Figures measureEvents(const Options &options)
{
    Figure rate("accepted events per second, every record accepted, 20 stanzas, into a pipe",
                "fputs and fflush of the same bytes", {0.4, 0.9}, "thousand a second");
    for (unsigned round = 0; round < options.rounds; ++round) {
        const Stream monitor = runMonitor(options.thousandEvents);
        if (round == 0) {
            keepEvents(monitor.text);
        }
        const Stream reference = runReference();
        // The pieces that were read last may reach beyond the sentinel's mark by different lengths.
        if (monitor.text.substr(0, monitor.text.find(kSentinelMark)) !=
            reference.text.substr(0, reference.text.find(kSentinelMark))) {
            throw std::runtime_error("the streams differ");
        }
        rate.add(reference.seconds / monitor.seconds, options.thousandEvents / monitor.seconds);
    }
    return {rate};
}

} // namespace velmox::bench
