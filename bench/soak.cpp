// Runs the installed program for minutes under a mixed load, with a reader of its output that becomes slow,
// stalls and comes back, and checks what has to hold for its memory, its handles and the events that it
// drops.
//
//     soak [MINUTES]
//
// Every accepted record has a number in its key, so that the lost ones are known one by one.

#include "bench/flood.h"
#include "bench/paced_reader.h"
#include "testbed/driver_service.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <vector>

namespace velmox::bench {
namespace {

using testbed::Bytes;
using testbed::TestDriver;

constexpr double kLimitMiB = 500;
// What the program may take beyond: the buffer in hand, and what the main thread allocates for an event.
constexpr double kOvershootMiB = 10;
constexpr double kNearLimitMiB = kLimitMiB - 10;
// The system counts a process's pages with a delay of some dozens for each thread.
constexpr double kCountedLateMiB = 1;
constexpr double kSecondsToRecover = 180;
constexpr unsigned kFullSpeed = UINT32_MAX;
constexpr std::uint64_t kBytesWaiting = 8 << 20;
constexpr unsigned kBlocksPerPush = 100;

/// One block of the load: texts and binary data on watched keys, keys that nobody watches, and a process's
/// life.
constexpr unsigned kRecordsPerBlock = 12;
constexpr unsigned kNumbersPerBlock = 4;

/// A part of the run: how much of the minutes, how many blocks come, and how fast the output is read.
/// Together they drive the program's backlog up to its limit of memory and back.
struct Phase
{
    const char *name;
    double share; // of the minutes
    unsigned blocksPerSecond;
    unsigned readerBytesPerSecond;
};

constexpr Phase kPhases[] = {
    {"read at once", 0.3, 500, PacedReader::kUnlimited},
    {"slow reader", 0.3, 500, 64 * 1024},
    {"stalled reader", 0.15, kFullSpeed, 0},
    {"reader is back", 0.25, 100, PacedReader::kUnlimited},
};

struct Sample
{
    double workingSetMiB;
    std::uint64_t taken; // records that the driver has handed out
};

testbed::RecordFields numbered(std::uint64_t number, unsigned pid)
{
    char digits[16];
    std::snprintf(digits, sizeof digits, "%09u", static_cast<unsigned>(number));
    testbed::RecordFields fields = record(u"Watched0\\Soak" + std::u16string(digits, digits + 9), pid);
    if (number % kNumbersPerBlock == 0) {
        fields.dataType = REG_BINARY;
        fields.data.assign(1500, static_cast<unsigned char>(number));
    }
    return fields;
}

void appendBlock(Bytes &out, std::uint64_t firstNumber)
{
    const auto pid = static_cast<unsigned>(500'000 + firstNumber);
    testbed::appendRecord(out, testbed::processCreated(pid, 4, u"S-1-5-18"));
    testbed::appendRecord(out, testbed::imageLoaded(pid, u"\\Device\\HarddiskVolume1\\Product\\program.exe"));
    for (unsigned i = 0; i < kNumbersPerBlock; ++i) {
        testbed::appendRecord(out, numbered(firstNumber + i, pid));
    }
    for (unsigned i = kNumbersPerBlock + 3; i < kRecordsPerBlock; ++i) {
        testbed::appendRecord(out, record(u"NobodyWatchesThis", pid));
    }
    testbed::appendRecord(out, testbed::processExited(pid, 4));
}

/// The handles that stay: the least of some counts, as a call in progress has some open for a moment.
unsigned lastingHandles(const Program &program)
{
    unsigned least = program.handleCount();
    for (int sample = 0; sample < 20; ++sample) {
        Sleep(5);
        least = std::min(least, program.handleCount());
    }
    return least;
}

class Soak
{
public:
    explicit Soak(double minutes) : minutes_(minutes) { driver_.reset(); }

    /// Whether all checks held.
    bool run();

private:
    void start();
    void runPhase(const Phase &phase);
    void recover();
    void stop();
    void pushAtPace(unsigned blocksPerSecond, double seconds);
    bool pushBlocks(std::uint64_t blocks);
    void sampleEachSecond();
    void checkLosses(const NumbersSeen &seen);
    void check(const char *what, bool holds);

    double minutes_;
    TestDriver driver_;
    // What the monitor watches: it ends with this process, as it would with a server.
    Program watched_{neighbourCommand("soak", "watched"), nullptr};
    OutputPipe pipe_;
    std::optional<Program> monitor_;
    std::optional<PacedReader> reader_;
    const char *phase_ = "";
    std::uint64_t startTicks_ = 0;
    std::uint64_t lastSampleTicks_ = 0;
    std::vector<Sample> samples_;
    std::uint64_t pushed_ = 0; // numbers
    unsigned handlesAtStart_ = 0;
    bool allHold_ = true;
};

bool Soak::run()
{
    start();
    for (const Phase &phase : kPhases) {
        runPhase(phase);
    }
    recover();
    stop();
    return allHold_;
}

void Soak::start()
{
    monitor_.emplace(monitorCommand(watched_.pid()), pipe_.writeEnd(), watchedKeys(20));
    pipe_.closeWriteEnd();
    reader_.emplace(pipe_);
    waitForPoll(driver_);
    startTicks_ = ticksNow();
    std::printf("%6s  %-15s %9s %8s %11s %11s %11s\n", "second", "phase", "MiB", "handles", "pushed",
                "received", "lost");
}

void Soak::runPhase(const Phase &phase)
{
    phase_ = phase.name;
    reader_->setBytesPerSecond(phase.readerBytesPerSecond);
    pushAtPace(phase.blocksPerSecond, phase.share * minutes_ * 60);
    if (handlesAtStart_ == 0) {
        handlesAtStart_ = lastingHandles(*monitor_);
        check("nothing is lost while the reader keeps up", reader_->numbers().lost == 0);
    }
}

void Soak::pushAtPace(unsigned blocksPerSecond, double seconds)
{
    const std::uint64_t start = ticksNow();
    double elapsed = 0;
    for (std::uint64_t blocks = 0; elapsed < seconds; elapsed = secondsBetween(start, ticksNow())) {
        sampleEachSecond();
        const bool behind =
            blocksPerSecond == kFullSpeed || static_cast<double>(blocks) < elapsed * blocksPerSecond;
        if (behind && pushBlocks(kBlocksPerPush)) {
            blocks += kBlocksPerPush;
        } else {
            Sleep(2);
        }
    }
}

// False when enough of them wait already.
bool Soak::pushBlocks(std::uint64_t blocks)
{
    if (driver_.state().bytesWaiting > kBytesWaiting) {
        return false;
    }
    Bytes records;
    for (std::uint64_t i = 0; i < blocks; ++i, pushed_ += kNumbersPerBlock) {
        appendBlock(records, pushed_);
    }
    driver_.push(records);
    return true;
}

void Soak::sampleEachSecond()
{
    const std::uint64_t now = ticksNow();
    if (lastSampleTicks_ != 0 && secondsBetween(lastSampleTicks_, now) < 1) {
        return;
    }
    lastSampleTicks_ = now;
    const VelmoxTestState state = driver_.state();
    const NumbersSeen seen = reader_->numbers();
    samples_.push_back({monitor_->workingSetMiB(), state.recordsDelivered});
    std::printf("%6.0f  %-15s %9.1f %8u %11llu %11llu %11llu\n", secondsBetween(startTicks_, now), phase_,
                samples_.back().workingSetMiB, monitor_->handleCount(), pushed_, seen.received, seen.lost);
    std::fflush(stdout);
}

// Goes on until an event comes that was pushed a moment ago, then looks at those that follow.
void Soak::recover()
{
    phase_ = "recovery";
    const std::uint64_t start = ticksNow();
    std::uint64_t aim = pushed_;
    while (reader_->numbers().next < aim && secondsBetween(start, ticksNow()) < kSecondsToRecover) {
        pushAtPace(kBlocksPerPush, 1);
    }
    aim = pushed_;
    pushAtPace(1000, 5);
    const std::uint64_t last = pushed_;
    for (const std::uint64_t from = ticksNow();
         reader_->numbers().next < last && secondsBetween(from, ticksNow()) < 30;) {
        sampleEachSecond();
        Sleep(10);
    }
    const NumbersSeen seen = reader_->numbers();
    check("after the recovery every event comes",
          seen.next == last && (seen.lost == 0 || seen.lastLost < aim));
}

void Soak::stop()
{
    const unsigned handles = lastingHandles(*monitor_);
    const double memory = monitor_->workingSetMiB();
    const double peak = monitor_->peakWorkingSetMiB();
    std::printf("handles after the first phase %u, at the end %u\n", handlesAtStart_, handles);
    std::printf("working set: peak %.2f MiB, at the end %.1f MiB\n", peak, memory);
    check("handles are as many as after the first phase", handles == handlesAtStart_ && handles > 0);
    check("the working set reached its limit", peak >= kLimitMiB - kCountedLateMiB);
    check("the working set stayed near its limit", peak <= kLimitMiB + kOvershootMiB);

    const std::uint64_t start = ticksNow();
    watched_.terminate();
    const DWORD code = monitor_->waitForExitCode();
    std::printf("ended %.2f s after the watched process with exit code %lu\n",
                secondsBetween(start, ticksNow()), code);
    check("the exit code is 0", code == 0);
    Str end = reader_->finish();
    check("the stream is closed", end.endsWith("</stream>\r\n"));
    checkLosses(reader_->numbers());
}

void Soak::checkLosses(const NumbersSeen &seen)
{
    std::printf("events: pushed %llu, received %llu, lost %llu, out of order %llu\n", pushed_, seen.received,
                seen.lost, seen.outOfOrder);
    check("each event came once and in order", seen.outOfOrder == 0);
    check("events pushed are those received and those lost", seen.received + seen.lost == pushed_);
    std::uint64_t takenBelow = 0;
    for (const Sample &sample : samples_) {
        if (sample.workingSetMiB >= kNearLimitMiB) {
            break;
        }
        takenBelow = sample.taken;
    }
    if (seen.lost == 0) {
        check("the limit made the program drop events", false);
        return;
    }
    const std::uint64_t firstRecord = seen.firstLost / kNumbersPerBlock * kRecordsPerBlock;
    std::printf("lost between numbers %llu and %llu; the first is record %llu, the last sample below %.0f "
                "MiB had %llu\n",
                seen.firstLost, seen.lastLost, firstRecord, kNearLimitMiB, takenBelow);
    check("nothing is lost before the limit", firstRecord + kRecordsPerBlock >= takenBelow);
}

void Soak::check(const char *what, bool holds)
{
    std::printf("%s: %s\n", holds ? "ok    " : "FAILED", what);
    allHold_ = allHold_ && holds;
}

int run(double minutes)
{
    SetEnvironmentVariableW(L"VELMOX_HOME", L"C:\\velmox");
    SetEnvironmentVariableW(L"VELMOXD_PROCESSID", nullptr);
    testbed::startDriverService();
    testbed::keepDriverService();
    const bool allHold = Soak(minutes).run();
    testbed::removeDriverService();
    return allHold ? 0 : 1;
}

} // namespace
} // namespace velmox::bench

int main(int count, char **arguments)
{
    if (count == 2 && std::strcmp(arguments[1], "watched") == 0) {
        Sleep(INFINITE);
    }
    try {
        return velmox::bench::run(count == 2 ? std::atof(arguments[1]) : 5);
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "soak: %s\n", exception.what());
        return 1;
    }
}
