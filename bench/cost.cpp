#include "bench/cost.h"

#include "bench/capture_cost.h"
#include "pipeline/input/driver/shared_state.h"
#include "pipeline/input/events/record_processor.h"
#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"
#include "pipeline/input/rules/stanza_configuration.h"
#include "testbed/record_builder.h"
#include "util/files/file_star.h"
#include "util/log/logger.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <psapi.h>
#include <stdexcept>

namespace velmox::bench {

namespace {

using testbed::Bytes;

constexpr unsigned kRecords = 1000;
// A figure of a round is the best of so many, each of which takes some milliseconds.
constexpr unsigned kTries = 7;
constexpr double kLeastSeconds = 0.002;
// As many ticks lie between two records as between events on a busy machine: 20 microseconds.
constexpr std::uint64_t kTicksBetween = 200;
constexpr unsigned kFirstPid = 400'000;
constexpr double kMiB = 1024 * 1024;

double secondsNow()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Nanoseconds a record of the quickest of several tries.
template <class Work>
double bestNanoseconds(Work work)
{
    double best = 1e9;
    for (unsigned attempt = 0; attempt < kTries; ++attempt) {
        unsigned repeats = 0;
        const double start = secondsNow();
        double seconds = 0;
        do {
            work();
            ++repeats;
            seconds = secondsNow() - start;
        } while (seconds < kLeastSeconds);
        best = std::min(best, seconds / repeats / kRecords * 1e9);
    }
    return best;
}

constexpr std::array<char, 128> makeFoldTable()
{
    std::array<char, 128> table{};
    for (unsigned unit = 0; unit < table.size(); ++unit) {
        table[unit] = static_cast<char>(unit >= 'A' && unit <= 'Z' ? unit + 32 : unit);
    }
    return table;
}

constexpr std::array<char, 128> kFoldTable = makeFoldTable();

/// The pass that everything is measured by. Returns a sum, so that the compiler must do the work.
unsigned foldNames(const Bytes &buffer)
{
    static char folded[65536];
    unsigned sum = 0;
    for (std::size_t cursor = 0; cursor < buffer.size();) {
        const MonitorRecord record(buffer.data() + cursor);
        sum += record.recordClass() + record.operation() + record.pid() +
               static_cast<unsigned>(record.timestamp());
        const unsigned char *name = record.name();
        const std::size_t units = record.nameUnits();
        for (std::size_t i = 0; i < units; ++i) {
            folded[i] = kFoldTable[name[2 * i] & 0x7F];
        }
        sum += static_cast<unsigned char>(folded[units / 2]);
        cursor += record.length();
    }
    return sum;
}

double passNanoseconds(const Bytes &buffer)
{
    volatile unsigned sum = 0;
    return bestNanoseconds([&] { sum = sum + foldNames(buffer); });
}

/// The stanzas of a group, all of one kind: the number stands for each stanza's own.
struct Kind
{
    const char *hive;
    const char *proc = ".*";
};

constexpr Kind kBeginning = {"HKLM\\\\SOFTWARE\\\\Watched%u\\\\.*"};
constexpr Kind kInside = {"HKLM\\\\.*\\\\Run%u\\\\.*"};
constexpr Kind kAnywhere = {".*\\\\Run%u\\\\.*"};
constexpr Kind kAlternatives = {"HKLM\\\\.*\\\\(run%u|runonce%u)\\\\[^\\\\]+"};
constexpr Kind kNoLiteral = {"HKLM\\\\.*\\\\[ru]+n[0-9]{%u}\\\\[^\\\\]+"};
constexpr Kind kProcess = {".*", ".*\\\\Service%u\\.exe"};
constexpr Kind kControlSet = {"HKLM\\\\SYSTEM\\\\CurrentControlSet\\\\Services\\\\Watched%u\\\\.*"};
constexpr Kind kEvery = {"HKLM\\\\SOFTWARE\\\\.*\\\\Settings(%u)?\\\\.*"};

Str numbered(const char *format, unsigned number)
{
    Str text = format;
    text.replaceAll("%u", Str::fromFormat("%u", number));
    return text;
}

void moveOn(Bytes &buffer)
{
    constexpr std::size_t kTimestampOffset = 28;
    for (std::size_t cursor = 0; cursor < buffer.size();) {
        const MonitorRecord record(buffer.data() + cursor);
        const std::uint64_t later = record.timestamp() + kRecords * kTicksBetween;
        std::memcpy(buffer.data() + cursor + kTimestampOffset, &later, sizeof later);
        cursor += record.length();
    }
}

Stanzas stanzasOf(const Kind &kind, unsigned stanzas)
{
    Stanzas input;
    for (unsigned i = 0; i < stanzas; ++i) {
        PropertiesMap &stanza = input[Str::fromFormat("WinRegMon://bench%u", i)];
        stanza.set("hive", numbered(kind.hive, i));
        stanza.set("proc", numbered(kind.proc, i));
        stanza.set("type", "set|create|delete|rename");
    }
    return input;
}

constexpr char16_t kImage[] = u"\\Device\\HarddiskVolume1\\Program Files\\Some Product\\program.exe";

/// The machine that this runs on, but for new processes: to ask for one waits for the system.
class BenchMachine : public Machine
{
public:
    bool localTime(Timeval utc, Timeval &local) override { return systemMachine().localTime(utc, local); }
    bool processImage(std::uint32_t, char16_t *out) override
    {
        std::ranges::copy(kImage, out);
        return true;
    }
    std::uint32_t tickCount() const override { return systemMachine().tickCount(); }
    DriveMap &drives() override { return systemMachine().drives(); }
};

BenchMachine benchMachine;

/// Rules over a number of stanzas, and what goes through them.
class Monitor
{
public:
    Monitor(const Kind &kind, unsigned stanzas)
        : sink_(FileStar::tempFile()), emitter_([](const Str &) {}, sink_.get()),
          records_(rules_, hives_, statuses_, emitter_, benchMachine)
    {
        hives_.fill(u"\\REGISTRY\\USER\\S-1-5-21-7");
        auto group = makeFilterGroup(stanzasOf(kind, stanzas), {"main", true}, hives_);
        makeFilterBlock(*group, hives_, registryOperationMasks());
        rules_.insert(kRegmonFilters, std::move(group));
    }

    /// Each buffer's time is later than the one before, as a driver's is. The events go into a file, again
    /// and again from its start: its pages stay in memory, while Wine asks its server for each write of text
    /// to the null device.
    void take(Bytes &buffer)
    {
        moveOn(buffer);
        std::rewind(sink_.get());
        records_.processData(buffer.data(), static_cast<std::uint32_t>(buffer.size()));
    }

private:
    HiveNames hives_;
    MonitorRules rules_;
    StatusTexts statuses_;
    FileStar sink_;
    EventEmitter emitter_;
    RecordProcessor records_;
};

/// A thousand records of the processes in turn, of 168 bytes where the name is that of the plain rows.
Bytes thousandRecords(const std::u16string &name, unsigned processes = 10, unsigned firstPid = kFirstPid)
{
    Bytes buffer;
    testbed::RecordFields record{.dataType = 4, .name = name, .data = testbed::dwordData(42)};
    for (unsigned i = 0; i < kRecords; ++i) {
        record.pid = firstPid + 4 * (i % processes);
        record.timestamp += kTicksBetween;
        testbed::appendRecord(buffer, record);
    }
    return buffer;
}

const std::u16string kPlainName = u"\\REGISTRY\\MACHINE\\SOFTWARE\\NobodyWatchesThis\\Settings\\Value";

/// Fills the table of processes, and empties it in the end.
class KnownProcesses
{
public:
    explicit KnownProcesses(unsigned processes)
    {
        ProcessImageTable::instance().init(benchMachine);
        for (unsigned i = 0; i < processes; ++i) {
            ProcessImageTable::instance().add(kFirstPid + 4 * i, kImage);
        }
    }
    ~KnownProcesses() { ProcessImageTable::instance().destroy(); }
    KnownProcesses(const KnownProcesses &) = delete;
    KnownProcesses &operator=(const KnownProcesses &) = delete;
};

double monitorNanoseconds(Monitor &monitor, Bytes &buffer)
{
    return bestNanoseconds([&] { monitor.take(buffer); });
}

/// One row: what a record of a kind costs under so many stanzas of a kind.
struct Row
{
    const char *what;
    Kind kind;
    unsigned stanzas;
    std::u16string name = kPlainName;
    Goal goal = {};
    unsigned firstPid = kFirstPid;
    bool isAccepted = false;
};

const Row kRows[] = {
    {"dropped, 20 stanzas with a literal beginning", kBeginning, 20, kPlainName, {6, 3, true}},
    {"dropped, 200 of these", kBeginning, 200, kPlainName, {10, 5, true}},
    {"dropped, 20 stanzas with a literal inside", kInside, 20, kPlainName, {6, 3, true}},
    {"dropped, 200 of these", kInside, 200, kPlainName, {10, 5, true}},
    {"dropped, 20 stanzas without a literal beginning", kAnywhere, 20, kPlainName, {6, 3, true}},
    {"dropped, 200 of these", kAnywhere, 200, kPlainName, {10, 5, true}},
    {"dropped, 20 stanzas with alternatives", kAlternatives, 20, kPlainName, {60, 40, true}},
    {"dropped, 20 stanzas that no literal helps", kNoLiteral, 20, kPlainName, {60, 40, true}},
    {"dropped, 20 stanzas of one process each, any key", kProcess, 20},
    {"dropped, 20 stanzas, names beyond ASCII", kBeginning, 20,
     u"\\REGISTRY\\MACHINE\\SOFTWARE\\N\u00D6body\u0416atches\u00CEhis\\Settings\\Value"},
    {"dropped, 20 stanzas on the current control set, which is mapped", kControlSet, 20,
     u"\\REGISTRY\\MACHINE\\SYSTEM\\ControlSet001\\Services\\Nobody\\Value"},
    {"dropped, 20 stanzas, processes without a name", kBeginning, 20, kPlainName, {}, 1},
    {"accepted, 1 stanza", kEvery, 1, kPlainName, {60, 40, true}, kFirstPid, true},
    {"accepted, 20 stanzas", kEvery, 20, kPlainName, {60, 40, true}, kFirstPid, true},
};

void measureRow(const Row &row, double pass, Figure &figure)
{
    const KnownProcesses known(10);
    Monitor monitor(row.kind, row.stanzas);
    Bytes buffer = thousandRecords(row.name, 10, row.firstPid);
    const std::int32_t before = registry_evt_accepted;
    monitor.take(buffer);
    if (registry_evt_accepted - before != (row.isAccepted ? static_cast<std::int32_t>(kRecords) : 0)) {
        throw std::runtime_error(row.what);
    }
    const double nanoseconds = monitorNanoseconds(monitor, buffer);
    figure.add(nanoseconds / pass, nanoseconds);
}

double processesNanoseconds(const Kind &kind, unsigned processes)
{
    const KnownProcesses known(processes);
    Monitor monitor(kind, 20);
    Bytes buffer = thousandRecords(kPlainName, processes);
    return monitorNanoseconds(monitor, buffer);
}

void measureProcesses(const Kind &kind, Figure &figure)
{
    const double fewNanoseconds = processesNanoseconds(kind, 10);
    const double manyNanoseconds = processesNanoseconds(kind, 1000);
    figure.add(manyNanoseconds / fewNanoseconds, manyNanoseconds);
}

void measureAccepted(Figure &figure)
{
    const KnownProcesses known(10);
    Monitor few(kEvery, 20);
    Monitor many(kEvery, 200);
    Bytes buffer = thousandRecords(kPlainName);
    const double fewNanoseconds = monitorNanoseconds(few, buffer);
    const double manyNanoseconds = monitorNanoseconds(many, buffer);
    figure.add(manyNanoseconds / fewNanoseconds, manyNanoseconds);
}

void measureReplay(const Kind &kind, Figure &figure)
{
    const Bytes plain = thousandRecords(kPlainName);
    double monitorsNanoseconds = 0;
    {
        const KnownProcesses known(10);
        Monitor monitor(kind, 20);
        Bytes buffer = plain;
        monitorsNanoseconds = monitorNanoseconds(monitor, buffer);
    }
    ReplayedRecords replayed(plain, stanzasOf(kind, 20));
    const double nanoseconds = bestNanoseconds([&] { replayed.take(); });
    figure.add(nanoseconds / monitorsNanoseconds, nanoseconds);
}

void measureRecording(Figure &figure)
{
    const KnownProcesses known(10);
    Monitor monitor(kBeginning, 20);
    Bytes buffer = thousandRecords(kPlainName);
    const double monitorsNanoseconds = monitorNanoseconds(monitor, buffer);
    RecordedRecords recorded;
    const double nanoseconds = bestNanoseconds([&] {
        moveOn(buffer);
        recorded.take(buffer);
    });
    figure.add(nanoseconds / monitorsNanoseconds, nanoseconds);
}

// Of a record of a process that begins and ends at once, while so many others have just ended: their images
// are kept for some seconds. A backlog that is drained holds thousands of them.
double livesNanoseconds(unsigned ended)
{
    Bytes buffer;
    for (unsigned i = 0; i < kRecords / 2; ++i) {
        testbed::appendRecord(buffer, testbed::processCreated(kFirstPid + 4 * i, 4, u"S-1-5-18"));
        testbed::appendRecord(buffer, testbed::processExited(kFirstPid + 4 * i, 4));
    }
    double best = 1e9;
    for (unsigned attempt = 0; attempt < kTries; ++attempt) {
        const KnownProcesses known(ended);
        for (unsigned i = 0; i < ended; ++i) {
            char16_t image[kImageUnits];
            ProcessImageTable::instance().retire(kFirstPid + 4 * i, image, kImageUnits);
        }
        Monitor monitor(kBeginning, 20);
        const double start = secondsNow();
        monitor.take(buffer);
        best = std::min(best, (secondsNow() - start) / kRecords * 1e9);
    }
    return best;
}

void measureLives(Figure &figure)
{
    const double fewNanoseconds = livesNanoseconds(10);
    const double manyNanoseconds = livesNanoseconds(10'000);
    figure.add(manyNanoseconds / fewNanoseconds, manyNanoseconds);
}

double workingSetMiB()
{
    PROCESS_MEMORY_COUNTERS memory = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
    return static_cast<double>(memory.WorkingSetSize) / kMiB;
}

/// What 200 stanzas with all their programs take. They are kept, so that each round needs memory of its own.
void measureMemory(Figure &figure)
{
    static std::vector<std::unique_ptr<Monitor>> kept;
    const double before = workingSetMiB();
    const KnownProcesses known(10);
    kept.push_back(std::make_unique<Monitor>(kEvery, 200));
    Bytes buffer = thousandRecords(kPlainName);
    kept.back()->take(buffer);
    const double taken = workingSetMiB() - before;
    figure.add(taken, taken);
}

/// The log as it ships, into its file below a folder of its own. A start of the program writes four lines for
/// each stanza, which standard error, behind pipes, would take many times as long to take.
class ShippedLog
{
public:
    ShippedLog()
    {
        std::filesystem::create_directories(home_ / "var/log/velmox");
        // The root of the machine that builds is drive Z.
        if (!Logger::loadConfig(Pathname::fromUtf8("Z:" VELMOX_ETC "/log-cmdline.cfg"), nullptr,
                                {{"VELMOX_HOME", Str(home_.string())}}, true)) {
            throw std::runtime_error("no configuration of the log");
        }
    }
    ~ShippedLog()
    {
        Logger::reset(nullptr);
        std::error_code ignored;
        std::filesystem::remove_all(home_, ignored);
    }
    ShippedLog(const ShippedLog &) = delete;
    ShippedLog &operator=(const ShippedLog &) = delete;

private:
    std::filesystem::path home_ = std::filesystem::temp_directory_path() / "velmox-cost-bench";
};

void measureStart(Figure &figure)
{
    const KnownProcesses known(10);
    Bytes buffer = thousandRecords(kPlainName);
    const auto millisecondsOf = [&buffer](unsigned stanzas) {
        double best = 1e9;
        for (unsigned attempt = 0; attempt < kTries; ++attempt) {
            const double start = secondsNow();
            Monitor monitor(kInside, stanzas);
            monitor.take(buffer);
            best = std::min(best, (secondsNow() - start) * 1e3);
        }
        return best;
    };
    const double more = millisecondsOf(200) - millisecondsOf(1);
    figure.add(more, more);
}

} // namespace

Figures measureCost(unsigned rounds)
{
    const ShippedLog log;
    Figures figures;
    for (const Row &row : kRows) {
        figures.emplace_back(row.what, "the pass", row.goal, "ns a record");
    }
    Figure processes("dropped, records of 1000 processes", "of 10", {1.15, 1.05, true}, "ns a record");
    Figure asked("the same, stanzas of one process each", "of 10", {1.15, 1.05, true}, "ns a record");
    Figure lives("processes that begin and end, 10000 others having just ended", "10 others", {2, 1.2, true},
                 "ns a record");
    Figure accepted("accepted, 200 stanzas", "20 stanzas", {1.3, 1.1, true}, "ns a record");
    Figure memory("memory of 200 stanzas, MiB", "", {16, 4, true}, "MiB");
    Figure start("start with 200 stanzas, ms more than with one", "", {50, 20, true}, "ms");
    Figure replayDropped("replayed, dropped, 20 stanzas", "the monitor", {1.5, 1.2, true}, "ns a record");
    Figure replayAccepted("replayed, accepted, 20 stanzas", "the monitor", {1.5, 1.2, true}, "ns a record");
    Figure recorded("recorded", "the monitor, dropped, 20 stanzas", {}, "ns a record");
    const Bytes plain = thousandRecords(kPlainName);
    for (unsigned round = 0; round < rounds; ++round) {
        measureMemory(memory);
        const double pass = passNanoseconds(plain);
        std::fprintf(stderr, "the pass: %.1f ns a record of %u bytes\n", pass,
                     static_cast<unsigned>(plain.size() / kRecords));
        for (std::size_t i = 0; i < std::size(kRows); ++i) {
            measureRow(kRows[i], pass, figures[i]);
        }
        measureProcesses(kBeginning, processes);
        measureProcesses(kProcess, asked);
        measureLives(lives);
        measureAccepted(accepted);
        measureStart(start);
        measureReplay(kBeginning, replayDropped);
        measureReplay(kEvery, replayAccepted);
        measureRecording(recorded);
    }
    for (const Figure &figure :
         {processes, asked, lives, accepted, memory, start, replayDropped, replayAccepted, recorded}) {
        figures.push_back(figure);
    }
    return figures;
}

} // namespace velmox::bench
