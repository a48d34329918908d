#include "bench/flood.h"

#include "bench/program.h"
#include "pipeline/input/driver/driver_reader.h"
#include "tests/e2e/input_document.h"

#include <memory>
#include <stdexcept>

namespace velmox::bench {

namespace {

using testbed::Bytes;
using testbed::RecordFields;
using testbed::TestDriver;

// As the monitor begins.
constexpr DWORD kReadSize = DriverReader::kFirstSize;
constexpr unsigned kThousand = 1000;
// 2 microseconds from record to record.
constexpr std::uint64_t kTicksBetween = 20;
constexpr unsigned kFirstPid = 400'000;

unsigned pidOf(unsigned process)
{
    return kFirstPid + 4 * process;
}

// What makes the monitor know the processes.
Bytes imageRecords(unsigned processes)
{
    Bytes buffer;
    for (unsigned i = 0; i < processes; ++i) {
        const std::u16string path = u"\\Device\\HarddiskVolume1\\Program Files\\Some Product\\program.exe";
        testbed::appendRecord(buffer, testbed::imageLoaded(pidOf(i), path));
    }
    return buffer;
}

// A thousand records of all the processes in turn, of which the last one is accepted.
Bytes thousandRecords(unsigned processes)
{
    Bytes buffer;
    for (unsigned i = 1; i < kThousand; ++i) {
        testbed::appendRecord(buffer, record(u"NobodyWatchesThis", pidOf(i % processes)));
    }
    testbed::appendRecord(buffer, record(u"Watched0", pidOf(0)));
    return buffer;
}

void fill(TestDriver &driver, const Flood &flood)
{
    driver.reset();
    // Closed while a program starts: its start is no part of the measurement, and the whole flood waits when
    // it begins to read.
    driver.closeGate();
    driver.push(imageRecords(flood.processes));
    driver.push(thousandRecords(flood.processes), flood.thousands, kTicksBetween);
    driver.push(testbed::recordBuffer({record(kSentinelKey)}));
}

struct MonitorResult
{
    double seconds;
    double workingSetMiB;
};

// From the first read that finds something to the sentinel's event.
MonitorResult runMonitor(const Flood &flood)
{
    TestDriver driver;
    fill(driver, flood);
    OutputPipe pipe;
    const Program monitor(monitorCommand(), pipe.writeEnd(), watchedKeys(flood.stanzas));
    pipe.closeWriteEnd();
    waitForPoll(driver);
    driver.openGate();
    pipe.readUntil(kSentinelMark);
    return {secondsBetween(driver.state().firstDeliveryTicks, pipe.markTicks()), monitor.workingSetMiB()};
}

/// How long a program takes a flood off the driver, whatever it does with it then.
double drainSeconds(const Flood &flood, const Str &command, std::string_view input)
{
    TestDriver driver;
    fill(driver, flood);
    // Also for a program that shares the device and asks for nothing itself.
    driver.setFilter(testbed::everything());
    const FileHandle output = createOutputFile("C:\\drained.txt");
    const Program program(command, output.get(), input);
    waitForPoll(driver);
    driver.openGate();
    if (!driver.waitFor([](const VelmoxTestState &state) { return state.recordsWaiting == 0; },
                        std::chrono::minutes(5))) {
        throw std::runtime_error("the flood does not end");
    }
    return secondsBetween(driver.state().firstDeliveryTicks, ticksNow());
}

/// Fails for a recording that cannot be read.
void summarise(const Str &capture)
{
    const FileHandle output = createOutputFile("C:\\summary.txt");
    Program(Str::concat("\"C:\\velmox\\bin\\velmox-capture.exe\" summary ", capture), output.get())
        .waitForEnd();
}

void compare(Figure &figure, const Flood &small, const Flood &large)
{
    const double reference = runMonitor(small).seconds;
    const double seconds = runMonitor(large).seconds;
    figure.add(seconds / reference, seconds / large.records() * 1e6);
}

Figure growth(const char *what, const char *reference, double factor)
{
    return Figure(what, reference, {factor, factor, true}, "us a record");
}

} // namespace

RecordFields record(const std::u16string &key, unsigned pid)
{
    RecordFields fields;
    fields.pid = pid;
    fields.name = u"\\REGISTRY\\MACHINE\\SOFTWARE\\" + key + u"\\Settings\\Value";
    fields.data = testbed::stringData(u"some text");
    return fields;
}

Str watchedKeys(unsigned stanzas)
{
    e2e::InputDocument input;
    for (unsigned i = 0; i < stanzas; ++i) {
        input.stanza(Str::fromFormat("WinRegMon://bench%u", i),
                     {{"hive", Str::fromFormat("HKLM\\\\Software\\\\Watched%u\\\\.*", i)}, {"type", "set"}});
    }
    return input.checkpointDir("C:\\velmox").text();
}

double bareSeconds(const Flood &flood, AfterRead afterRead)
{
    TestDriver driver;
    fill(driver, flood);
    driver.setFilter(testbed::everything());
    driver.openGate();
    const FileHandle device(
        CreateFileW(L"\\\\.\\VelmoxTrace", 0, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    const std::uint64_t start = ticksNow();
    for (DWORD bytes = 1; bytes != 0;) {
        // A new buffer for each read, as the monitor hands each one on.
        const std::unique_ptr<unsigned char[]> buffer(new unsigned char[kReadSize]);
        if (!DeviceIoControl(device.get(), VELMOX_IOCTL_READ_EVENTS, nullptr, 0, buffer.get(), kReadSize,
                             &bytes, nullptr)) {
            throw std::runtime_error("the bare loop cannot read the device");
        }
        if (afterRead != nullptr) {
            afterRead();
        }
    }
    return secondsBetween(start, ticksNow());
}

Figures measureFlood(const Options &options)
{
    const Flood flood{options.thousandRecords};
    Figure rate("records per second, 1 in 1000 accepted, 20 stanzas", "bare loop of reads", {0.8, 0.95},
                "million a second");
    Figure memory("working set after the flood, MiB", "", {48, 24, true}, "MiB");
    Figure recorded("records per second, recorded into a file", "the monitor's worker", {1, 1.2},
                    "million a second");
    const Str recorder = "\"C:\\velmox\\bin\\velmox-capture.exe\" record C:\\flood.vcap --share";
    for (unsigned round = 0; round < options.rounds; ++round) {
        const double drained = drainSeconds(flood, monitorCommand(), watchedKeys(flood.stanzas));
        const double seconds = drainSeconds(flood, recorder, {});
        summarise("C:\\flood.vcap");
        recorded.add(drained / seconds, flood.records() / seconds / 1e6);
        const double bare = bareSeconds(flood);
        const MonitorResult monitor = runMonitor(flood);
        rate.add(bare / monitor.seconds, flood.records() / monitor.seconds / 1e6);
        memory.add(monitor.workingSetMiB, monitor.workingSetMiB);
    }
    return {rate, memory, recorded};
}

Figures measureGrowth(const Options &options)
{
    const unsigned quarter = std::max(1u, options.thousandRecords / 4);
    Figures figures = {
        growth("time of 4 times the records", "once the records", 4),
        growth("time with 20 stanzas", "with 1", 20),
        growth("time with 200 stanzas", "with 1", 200),
        growth("time with records of 1000 processes", "of 10", 100),
    };
    for (unsigned round = 0; round < options.rounds; ++round) {
        compare(figures[0], {quarter}, {4 * quarter});
        compare(figures[1], {quarter, 1}, {quarter, 20});
        compare(figures[2], {quarter, 1}, {quarter, 200});
        compare(figures[3], {quarter, 20, 10}, {quarter, 20, 1000});
    }
    return figures;
}

} // namespace velmox::bench
