#include "pipeline/input/driver/driver_reader.h"
#include "pipeline/input/driver/event_counters.h"
#include "pipeline/input/program/win_registry_monitor.h"
#include "testbed/record_builder.h"
#include "tests/pipeline/input/registry/registry_test_key.h"
#include "tests/support/captured_log.h"
#include "tests/support/failing_call.h"
#include "tests/support/log_lines.h"
#include "tests/support/main_thread.h"
#include "tests/support/scoped_folder.h"
#include "util/thread/thread_exception.h"

#include <cwchar>
#include <gtest/gtest.h>
#include <optional>
#include <psapi.h>

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::FailingCall;
using testing::ReplacedCall;

/// What one read gives: an error, or so many bytes of a record that nobody reports.
struct Answer
{
    DWORD error = 0;
    DWORD bytes = 0;
};

/// Answers the calls that open and use the device as a script says; one at a time.
class ScriptedDevice
{
public:
    ScriptedDevice() { current = this; }
    ~ScriptedDevice() { current = nullptr; }

    /// The errors of the first calls that open it.
    std::vector<DWORD> opens;
    DWORD filterError = 0;
    std::vector<Answer> reads;
    /// Called by the read that finds the script at its end.
    std::function<void()> atEnd;
    std::vector<DWORD> sizes;
    SIZE_T growth = 0;
    int memoryQueries = 0;
    SIZE_T workingSet = 0;
    DWORD memoryError = 0;
    bool isClosed = false;

private:
    static BOOL finish(DWORD error)
    {
        SetLastError(error);
        return error == 0;
    }

    static HANDLE WINAPI open(const wchar_t *name, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES *security,
                              DWORD disposition, DWORD flags, HANDLE model)
    {
        if (std::wcscmp(name, L"\\\\.\\VelmoxTrace") != 0) {
            return current->open_.original<decltype(CreateFileW)>()(name, access, sharing, security,
                                                                    disposition, flags, model);
        }
        EXPECT_EQ(access | sharing, 0u);
        EXPECT_EQ(flags, static_cast<DWORD>(FILE_FLAG_OVERLAPPED));
        if (current->opens.empty()) {
            current->isClosed = false;
            return current->handle_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        }
        finish(current->opens.front());
        current->opens.erase(current->opens.begin());
        return INVALID_HANDLE_VALUE;
    }

    static BOOL WINAPI control(HANDLE, DWORD code, void *, DWORD, void *out, DWORD size, DWORD *bytes,
                               OVERLAPPED *)
    {
        if (code == IOCTL_SET_FILTER) {
            return finish(current->filterError);
        }
        EXPECT_EQ(*bytes, 0u);
        current->sizes.push_back(size);
        const std::size_t at = current->sizes.size() - 1;
        if (at >= current->reads.size()) {
            current->atEnd();
            return TRUE;
        }
        static const testbed::Bytes record = testbed::recordBytes({.recordClass = 3});
        std::copy(record.begin(), record.end(), static_cast<unsigned char *>(out));
        *bytes = current->reads[at].bytes;
        return finish(current->reads[at].error);
    }

    static BOOL WINAPI close(HANDLE handle)
    {
        current->isClosed |= handle == current->handle_;
        return current->close_.original<decltype(CloseHandle)>()(handle);
    }

    static BOOL WINAPI memory(HANDLE, PROCESS_MEMORY_COUNTERS *counters, DWORD)
    {
        counters->WorkingSetSize = current->workingSet + current->growth * current->sizes.size();
        ++current->memoryQueries;
        return finish(current->memoryError);
    }

    static inline ScriptedDevice *current = nullptr;
    const ReplacedCall open_{"CreateFileW", open};
    HANDLE handle_ = nullptr;
    const ReplacedCall close_{"CloseHandle", close};
    const ReplacedCall control_{"DeviceIoControl", control};
    const ReplacedCall memory_{"K32GetProcessMemoryInfo", memory};
};

/// The sizes of a buffer that grows so often, and stays as it is after that.
std::vector<DWORD> grown(DWORD times, std::size_t reads)
{
    std::vector<DWORD> sizes;
    for (DWORD size = 8192; sizes.size() < reads; size += sizes.size() <= times ? 4096 : 0) {
        sizes.push_back(size);
    }
    return sizes;
}

TEST(DriverReader, RetriesDropsGrowsOrEndsAsTheFailureHasIt)
{
    const Answer tooSmall{ERROR_INSUFFICIENT_BUFFER, 0};
    const std::vector<Answer> full(40, Answer{0, 60});
    const struct
    {
        const char *what;
        std::vector<Answer> reads;
        SIZE_T workingSet;
        DWORD memoryError;
        int allocations; // before the one that fails; -1 for none
        std::vector<DWORD> sizes;
        std::size_t queued;
        int wakes; // of the taker: for eight buffers, and when none may follow soon
        bool endsByItself;
    } rows[] = {
        {"reads", {{0, 60}, {0, 61}}, 524287999, 0, -1, grown(0, 3), 2, 0, false},
        {"grows", {tooSmall, tooSmall, {0, 60}, {0, 60}}, 0, 0, -1, grown(2, 5), 2, 2, false},
        {"has a ceiling", std::vector<Answer>(20, tooSmall), 0, 0, -1, grown(14, 15), 0, 16, true},
        {"lost the driver", {{ERROR_DEVICE_NOT_CONNECTED, 60}, {0, 60}}, 0, 0, -1, grown(0, 3), 1, 1, false},
        {"at the limit of memory", {{0, 60}, {0, 61}}, 524288000, 0, -1, grown(0, 3), 0, 2, false},
        {"knows no memory", {{0, 60}}, 0, ERROR_ACCESS_DENIED, -1, grown(0, 1), 0, 1, true},
        {"gets no buffer", {{0, 60}}, 0, 0, 0, {}, 0, 1, true},
        {"has a full queue", full, 0, 0, 32, grown(0, 32), 31, 25, true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        ScriptedDevice script;
        script.reads = row.reads;
        script.workingSet = row.workingSet;
        script.memoryError = row.memoryError;
        script.sizes.reserve(100);
        StopFlag stop;
        script.atEnd = [&stop] { stop.set(); };
        BufferQueue queue;
        DeviceChannel device;
        ASSERT_TRUE(device.open());
        const LONG before = registry_evt_total;
        {
            const FailingCall woken("WakeConditionVariable", 0, 0, 0, 0);
            const FailingCall exhausted("malloc", 0, ERROR_NOT_ENOUGH_MEMORY, std::max(row.allocations, 0),
                                        row.allocations < 0 ? 0 : 1);
            DriverReader(device, queue, stop).run();
            EXPECT_EQ(woken.calls(), row.wakes);
        }
        EXPECT_EQ(stop.isSet(), !row.endsByItself);
        EXPECT_EQ(script.sizes, row.sizes);
        std::size_t queued = 0;
        for (EventBuffer buffer; queue.get(buffer, 0); ++queued) {
            EXPECT_EQ(buffer.bytes, 60u + (row.reads[queued].bytes == 61)) << queued;
        }
        EXPECT_EQ(queued, row.queued);
        EXPECT_EQ(registry_evt_total - before, static_cast<LONG>(row.queued));
    }
}

// Each buffer that is queued brings the working set nearer to its limit.
TEST(DriverReader, HoldsTheLimitOfMemoryThoughItRarelyAsks)
{
    ScriptedDevice script;
    script.reads.assign(60, {0, 60});
    script.growth = 8192;
    script.workingSet = 524288000 - 40 * script.growth;
    StopFlag stop;
    script.atEnd = [&stop] { stop.set(); };
    BufferQueue queue;
    DeviceChannel device;
    ASSERT_TRUE(device.open());
    DriverReader(device, queue, stop).run();
    int queued = 0;
    for (EventBuffer buffer; queue.get(buffer, 0); ++queued) {
    }
    EXPECT_EQ(queued, 39);
    EXPECT_LT(script.memoryQueries, 45) << "21 of them at the limit";
}

/// Reads its stanzas from a text, and may fail as it reports an event.
class TestMonitor : public WinRegistryMonitor
{
public:
    explicit TestMonitor(std::string_view document) : WinRegistryMonitor("", true), document_(document) {}
    bool refusesEvents = false;

private:
    const Stanzas &readInputStanzas(ConfigXmlStreamingParser &parser) override
    {
        parser.feed(document_.data(), document_.size());
        return parser.stanzas();
    }
    void eventWritten(const Str &) override
    {
        if (refusesEvents) {
            throw std::runtime_error("no more events");
        }
    }

    const std::string document_;
};

class MonitorTest : public ::testing::Test
{
protected:
    MonitorTest() { testing::ensureMainThread(); }

    Str document(const char *params) const
    {
        return Str::fromFormat(
            "<input><checkpoint_dir>%s</checkpoint_dir><configuration><stanza name='WinRegMon://x'>"
            "<param name='type'>nothing</param><param name='proc'>.*</param>%s"
            "</stanza></configuration></input>",
            folder_.path().toStr().c_str(), params);
    }

    const testing::ScopedFolder folder_;
    ScriptedDevice script_;
    std::optional<FailingCall> noServices_{std::in_place, "OpenSCManagerA", 0, ERROR_ACCESS_DENIED, 0, 9};
};

constexpr char kLocalMachine[] = "<param name='hive'>HKLM</param>";
const std::string kHead = "WinRegistryMonitor::";
const std::string kNoManager = "manageDriver Open SC Manager failed! Error = 5";

Str errors(const std::string &lines, DWORD error = 0)
{
    return testing::logLines("ERROR velmox-regmon: ", lines, error);
}

TEST_F(MonitorTest, EachFailureOfTheStartIsToldWithItsReason)
{
    const struct
    {
        const char *function;
        DWORD error, openError, filterError;
        bool isReady;
        int managed;
        std::string log;
    } rows[] = {
        {"GetModuleHandleW", 126, 0, 0, false, 0, kHead + "init: Failed to load ntdll.dll: '%m'"},
        {"GetProcAddress", 127, 0, 0, true, 0,
         kHead + "init: Failed to get RtlNtStatusToDosError function pointer from ntdll.dll: '%m'"},
        {nullptr, 5, 5, 0, false, 0, kHead + "StartDriver: CreateFile failed ! error: '(5)%m'"},
        {nullptr, 0, 2, 0, false, 2,
         kNoManager + "\n" + kHead + "StartDriver: Unable to install driver.\n" + kNoManager},
        {nullptr, 31, 0, 31, false, 0,
         kHead + "setRegEvtTypesToMonitor: Unable to set driver configuration: '(31)%m'\n" + kHead +
             "init: Failed to set event type class configuration to monitor"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.log);
        script_.opens.assign(row.openError != 0 ? 1 : 0, row.openError);
        script_.filterError = row.filterError;
        TestMonitor monitor(document(kLocalMachine).view());
        const CapturedLog log;
        const int managed = noServices_->failed();
        const FailingCall refused(row.function ? row.function : "GetProcAddress", 0, row.error, 0,
                                  row.function ? 1 : 0);
        EXPECT_EQ(monitor.init(), row.isReady);
        EXPECT_EQ(noServices_->failed() - managed, row.managed);
        const Str expected = errors(row.log, row.error);
        EXPECT_EQ(log.text().substr(0, expected.size()), expected);
        EXPECT_EQ(log.text().contains("Driver filter configured successfully"), row.isReady);
    }
}

TEST_F(MonitorTest, ADeviceThatAnInstalledDriverDoesNotBringIsToldOnce)
{
    script_.opens = {ERROR_FILE_NOT_FOUND, ERROR_SHARING_VIOLATION};
    noServices_.reset();
    const FailingCall managed("OpenSCManagerA", 1, 0);
    const FailingCall created("CreateServiceW", 1, 0);
    const FailingCall opened("OpenServiceW", 1, 0);
    const FailingCall started("StartServiceA", TRUE, 0);
    const ReplacedCall closed(
        "CloseServiceHandle", +[](SC_HANDLE) -> BOOL { return TRUE; });
    const CapturedLog log;
    EXPECT_FALSE(TestMonitor(document(kLocalMachine).view()).init());
    EXPECT_EQ(started.failed(), 1);
    EXPECT_EQ(log.text(), errors(kHead + "StartDriver: CreateFile failed: '%m'", ERROR_SHARING_VIOLATION));
}

TEST_F(MonitorTest, AWorkerThatCannotStartFailsTheRunAndGivesTheDriverUp)
{
    for (const char *function : {"CreateEventA", "_beginthreadex"}) {
        const CapturedLog log;
        {
            TestMonitor monitor(document(kLocalMachine).view());
            ASSERT_TRUE(monitor.init());
            const FailingCall refused(function, 0, ERROR_NOT_ENOUGH_MEMORY);
            if (*function == '_') {
                EXPECT_THROW(monitor.run(), ThreadException);
            } else {
                EXPECT_FALSE(monitor.run());
                EXPECT_TRUE(log.text().endsWith(errors(kNoManager)));
                EXPECT_TRUE(script_.isClosed) << "by the run itself";
            }
        }
        EXPECT_TRUE(script_.isClosed) << function;
    }
}

TEST_F(MonitorTest, WithoutABaselineItWaitsForAWorkerThatNeverEnds)
{
    const RegistryTestKey key;
    key.setNumber(u"", u"v", 1);
    Str hive = Str::fromFormat("HKCU\\%s\\.*", Str::fromUtf16(key.path()).c_str());
    hive.replaceAll("\\", "\\\\");
    const Str params =
        Str::fromFormat("<param name='hive'>%s</param><param name='baseline'>1</param>", hive.c_str());
    TestMonitor monitor(document(params.c_str()).view());
    ASSERT_TRUE(monitor.init());
    monitor.refusesEvents = true;
    const CapturedLog log;
    // PCRE waits as well, for the lock of its machine code.
    const FailingCall endless("WaitForSingleObject", WAIT_OBJECT_0, 0, 0, 1000);
    EXPECT_FALSE(monitor.run());
    EXPECT_EQ(script_.sizes.size(), 0u);
    const std::string lines =
        kHead + "establishBaseline: Failed to establish baseline: 'no more events'\n" + kHead +
        "StartMonitorWorker: Unable to establish baseline for the registry keys that are being monitored\n" +
        kHead + "run: Failed to start Registry Monitor: device driver has not been installed\n" + kNoManager;
    EXPECT_TRUE(log.text().endsWith(errors(lines))) << log.text().c_str();
}

} // namespace
} // namespace velmox
