#include "capture/record/recorder.h"

#include "capture/record/capture_output.h"
#include "capture/record/recording.h"
#include "pipeline/input/driver/driver_reader.h"
#include "pipeline/input/driver/driver_service.h"
#include "pipeline/input/events/process_enumeration.h"
#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"
#include "util/process/parent_watch.h"
#include "util/thread/thread.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <io.h>

namespace velmox {

namespace {

constexpr std::uint64_t kMegabyte = 1'000'000;
// Blocks are written so many at a time: by pieces of 64 KiB the system took a third longer for the file.
constexpr std::size_t kGatheredBytes = 262'144;
// Twice what the monitor begins with. What a recorder has read needs no verdict, so that in a flood it is the
// reads that decide what is lost; a buffer that has few records in it takes all its room in the queue,
// though.
constexpr DWORD kReadBytes = 2 * DriverReader::kFirstSize;
// How long the main thread waits for a buffer before it looks at the clock and the stop flag; how soon a
// recording ends.
constexpr DWORD kQueueMilliseconds = 250;
/// The line of progress is written at most this often. Blocks wait for this long and the time above at most.
constexpr auto kBetween = std::chrono::milliseconds(250);
constexpr std::size_t kBarWidth = 20;

using Clock = std::chrono::steady_clock;

[[noreturn]] void failWithLastError(const Str &what)
{
    const DWORD error = GetLastError();
    throw ComponentException(Str::fromErrorFormat(error, "%s: %m", what.c_str()));
}

MonitorFilterConfig everything()
{
    MonitorFilterConfig block = {kAllEvents, kStatusMask, 0, kUserHives | kMachineHives};
    for (const auto &[word, mask] : registryOperationMasks()) {
        block.ops |= mask;
    }
    return block;
}

/// What to ask the driver for.
MonitorFilterConfig filterOf(const std::optional<Stanzas> &stanzas, HiveNames &hiveNames)
{
    if (!stanzas) {
        return everything();
    }
    const auto group = makeFilterGroup(*stanzas, {}, hiveNames);
    if (!group) {
        throw ComponentException("no enabled stanza in the document on standard input");
    }
    return makeFilterBlock(*group, hiveNames, registryOperationMasks());
}

WideStr nativeUserPath(const HiveNames &hiveNames)
{
    for (const auto &[root, info] : hiveNames.hiveKeyMap()) {
        // The table has the root by each name that a pattern may use; only the native one begins so.
        if (info.shortName == u"HKCU" && root.startsWith(u"\\")) {
            return root;
        }
    }
    return {};
}

CaptureStart askMachine(const MonitorFilterConfig &filter, const HiveNames &hiveNames)
{
    CaptureStart start;
    start.time = platform::systemTime();
    start.filter = filter;
    start.userPath = std::u16string_view(nativeUserPath(hiveNames));
    start.controlSet = HiveNames::systemControlSet();
    start.drives = systemMachine().drives().mappings();
    enumerateProcesses([&start](std::uint32_t pid, const char16_t *image) {
        start.processes.push_back({pid, image});
    });
    return start;
}

/// The driver's device for as long as the object lives. What this one installed goes with it.
class RecordedDevice
{
public:
    RecordedDevice(bool isShared, const MonitorFilterConfig &filter)
        : name_(chooseDriverName()), imagePath_(driverPath(name_))
    {
        if (isSafeMode()) {
            throw ComponentException("the driver cannot be started in safe mode");
        }
        // Before the device is opened, which would start the service: who finds it running has not started
        // it, and does not stop it.
        const bool isRunning = isDriverRunning();
        if (isRunning && !isShared) {
            throw ComponentException(
                "the driver's service runs already: a monitor has the device, and two readers take each "
                "other's records (--share records beside it all the same)");
        }
        isOwn_ = !isRunning;
        if (!device_.openOrInstall(name_, imagePath_)) {
            throw ComponentException("the driver's device cannot be opened");
        }
        if (isOwn_ && !device_.setFilter(filter)) {
            // The destructor does not run for an object whose constructor throws.
            const DWORD error = GetLastError();
            close();
            SetLastError(error);
            failWithLastError("the driver does not take what it is asked for");
        }
    }
    ~RecordedDevice() { close(); }
    RecordedDevice(const RecordedDevice &) = delete;
    RecordedDevice &operator=(const RecordedDevice &) = delete;

    const DeviceChannel &channel() const { return device_; }
    /// Whether nobody else had asked the driver for anything.
    bool isOwn() const { return isOwn_; }

private:
    bool isDriverRunning() const
    {
        bool isInstalled = false;
        bool isRunning = false;
        Str imagePath;
        queryDriverInfo(name_, isInstalled, isRunning, imagePath);
        return isRunning;
    }

    // The driver cannot stop while this process holds its device, so that is closed first.
    void close()
    {
        device_.close();
        if (isOwn_) {
            manageDriver(name_, imagePath_.c_str(), kStopAndRemove);
        }
    }

    const char16_t *const name_;
    const Pathname imagePath_;
    DeviceChannel device_;
    bool isOwn_ = false;
};

/// The monitor's own worker, and the queue between it and the main thread.
class ReadThread : public Thread
{
public:
    ReadThread(const DeviceChannel &device, StopFlag &stopFlag)
        : Thread("CaptureReadThread"), device_(device), stopFlag_(stopFlag)
    {
        start();
    }
    ~ReadThread() noexcept(false) override { stop(); }

    bool get(EventBuffer &buffer, DWORD milliseconds) { return queue_.get(buffer, milliseconds); }
    /// Ends the worker and waits for it. What it queued by then can still be taken.
    void stop()
    {
        stopFlag_.set();
        if (!isJoined_) {
            isJoined_ = true;
            join();
        }
    }
    /// Whether it ended before it was told to.
    bool hasFailed() const { return hasFailed_; }

protected:
    void main() override
    {
        DriverReader(device_, queue_, stopFlag_, kReadBytes).run();
        // Where nobody asked the reader to end, it ends only when it can't go on. The flag is set behind the
        // look at it, and the main thread woken, which would else wait for the next buffer.
        hasFailed_ = !stopFlag_.isSet();
        stopFlag_.set();
        queue_.wakeTaker();
    }

private:
    const DeviceChannel &device_;
    StopFlag &stopFlag_;
    BufferQueue queue_;
    bool isJoined_ = false;
    bool hasFailed_ = false; // to be read behind the join
};

/// Ctrl-C and Ctrl-Break set the flag while this lives, instead of ending the process: the file gets its
/// totals, and the driver is removed.
class ConsoleWatch
{
public:
    explicit ConsoleWatch(StopFlag &stopFlag)
    {
        waitForParentOrSignal([](void *flag) { static_cast<StopFlag *>(flag)->set(); }, &stopFlag,
                              ParentWatchMode::ConsoleOnly, 0);
    }
    ~ConsoleWatch() { stopParentWatch(); }
    ConsoleWatch(const ConsoleWatch &) = delete;
    ConsoleWatch &operator=(const ConsoleWatch &) = delete;
};

StatusTexts::StatusToError statusMapping()
{
    StatusTexts::StatusToError mapping = nullptr;
    findRoutine(GetModuleHandleW(L"ntdll.dll"), "RtlNtStatusToDosError", mapping);
    return mapping;
}

/// Reads dropped since the last call. Taken and set to zero in one step, as the worker counts meanwhile.
std::uint32_t newlyLost()
{
    return static_cast<std::uint32_t>(registry_reads_dropped.exchange(0));
}

/// Tells people how a recording goes: a line on standard error that is written over a few times a second, if
/// that is a terminal, and one in the end.
class Progress
{
public:
    struct Figures
    {
        std::uint64_t records = 0;
        std::uint64_t bytes = 0;
        std::uint64_t lostReads = 0;
    };

    /// When the recording ends by itself; zeros for no such end.
    Progress(std::uint64_t seconds, std::uint64_t bytes);

    void show(const Figures &figures);
    void end(const Figures &figures);

    std::uint64_t seconds() const;

private:
    double doneShare(const Figures &figures) const;
    void write(const Figures &figures, const char *lineEnd);

    std::uint64_t lastSecond_;
    std::uint64_t lastByte_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point shown_;
    bool isTerminal_;
};

Progress::Progress(std::uint64_t seconds, std::uint64_t bytes)
    : lastSecond_(seconds), lastByte_(bytes), isTerminal_(_isatty(_fileno(stderr)) != 0)
{
}

std::uint64_t Progress::seconds() const
{
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start_).count());
}

void Progress::show(const Figures &figures)
{
    if (isTerminal_ && Clock::now() - shown_ >= kBetween) {
        shown_ = Clock::now();
        write(figures, "");
    }
}

void Progress::end(const Figures &figures)
{
    write(figures, "\n");
}

// Of the end that is nearer.
double Progress::doneShare(const Figures &figures) const
{
    const auto share = [](std::uint64_t done, std::uint64_t all) {
        return all == 0 ? 0.0 : static_cast<double>(done) / static_cast<double>(all);
    };
    return std::min(1.0, std::max(share(seconds(), lastSecond_), share(figures.bytes, lastByte_)));
}

void Progress::write(const Figures &figures, const char *lineEnd)
{
    Str line;
    if (isTerminal_) {
        line.push_back('\r');
    }
    if (isTerminal_ && (lastSecond_ != 0 || lastByte_ != 0)) {
        const auto done = static_cast<std::size_t>(doneShare(figures) * kBarWidth);
        line << '[' << Str(done, '#') << Str(kBarWidth - done, '.') << "] ";
    }
    line << seconds() << " s, " << figures.records << " records, ";
    line.appendFormat("%.1f MB, ", static_cast<double>(figures.bytes) / static_cast<double>(kMegabyte));
    line << figures.lostReads << " reads lost" << lineEnd;
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
}

void recordUntilStopped(const RecordOptions &options, ReadThread &reader, const StopFlag &stopFlag,
                        Recording &recording, CaptureWriter &writer)
{
    Progress progress(options.seconds, options.megabytes * kMegabyte);
    const auto figures = [&] {
        return Progress::Figures{recording.records(), writer.bytes(), recording.lostReads()};
    };
    // The worker may have dropped reads in front of this buffer or behind it. They go with the next buffer
    // that is taken: it is known how many were lost, and about when.
    const auto takeNext = [&](DWORD milliseconds) {
        EventBuffer buffer;
        const bool isTaken = reader.get(buffer, milliseconds);
        if (isTaken) {
            recording.take({buffer.data.get(), buffer.bytes}, newlyLost());
        }
        return isTaken;
    };
    const auto isAtEnd = [&] {
        return (options.seconds != 0 && progress.seconds() >= options.seconds) ||
               (options.megabytes != 0 && writer.bytes() >= options.megabytes * kMegabyte);
    };
    Clock::time_point flushed = Clock::now();
    while (!stopFlag.isSet() && !isAtEnd()) {
        // A look at the queue before each wait, to flush when it is empty, cost a tenth of the speed.
        const bool isTaken = takeNext(kQueueMilliseconds);
        if (const Clock::time_point now = Clock::now(); !isTaken || now - flushed >= kBetween) {
            writer.flush();
            flushed = now;
        }
        progress.show(figures());
    }
    // First the worker, then what it left in the queue: the totals are those of a recording that is over.
    reader.stop();
    while (takeNext(0)) {
    }
    recording.end(newlyLost());
    writer.flush();
    progress.end(figures());
    // Behind the totals. What came before the failure is a whole recording.
    if (reader.hasFailed()) {
        throw ComponentException("the driver cannot be read any more");
    }
}

} // namespace

void record(const RecordOptions &options)
{
    // In this order, so that nothing is touched before it is known to be wanted, and everything is undone in
    // reverse: foreign files and wrong stanzas are refused before a driver is installed, Ctrl-C is caught
    // before, and an earlier capture is emptied only once the device is open.
    const EmptyMainThread mainThread;
    CaptureOutput::refuseForeignFile(options.file);
    HiveNames hiveNames;
    hiveNames.initHiveNameKeyMap();
    const MonitorFilterConfig filter = filterOf(options.stanzas, hiveNames);
    StopFlag stopFlag;
    const ConsoleWatch watch(stopFlag);
    const RecordedDevice device(options.isShared, filter);
    CaptureOutput output(options.file);
    CaptureWriter writer([&output](std::string_view bytes) { output.write(bytes); }, kGatheredBytes);
    StatusTexts statusTexts;
    statusTexts.setMapping(statusMapping());
    Recording recording(systemMachine(), statusTexts, writer);
    try {
        // Processes that run already are noted before the first record can name one.
        writer.write(askMachine(device.isOwn() ? filter : MonitorFilterConfig{}, hiveNames));
        ReadThread reader(device.channel(), stopFlag);
        recordUntilStopped(options, reader, stopFlag, recording, writer);
    } catch (const std::exception &exception) {
        throw RecordingFailure(exception.what());
    }
}

} // namespace velmox
