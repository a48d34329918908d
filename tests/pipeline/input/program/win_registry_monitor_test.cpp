#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/program/win_registry_monitor.h"
#include "tests/pipeline/input/driver/scripted_device.h"
#include "tests/support/main_thread.h"
#include "util/thread/thread_primitives.h"

#include <cstdarg>
#include <evntrace.h>
#include <wmistr.h>

// The installed program's own entry point, linked in.
int wmain(int, wchar_t **arguments);

namespace velmox {
namespace {

/// Reads its stanzas from a text, and calls back when it has reported an event.
class TestMonitor : public WinRegistryMonitor
{
public:
    explicit TestMonitor(const Str &document) : WinRegistryMonitor("", true), document_(document) {}
    std::function<void()> onEvent = [] {};

private:
    const Stanzas &readInputStanzas(ConfigXmlStreamingParser &parser) override
    {
        parser.feed(document_.data(), document_.size());
        return parser.stanzas();
    }
    void eventWritten(const Str &) override { onEvent(); }

    const Str document_;
};

class MonitorTest : public ::testing::Test
{
protected:
    MonitorTest() { testing::ensureMainThread(); }

    Str document(const char *params) const
    {
        return Str::fromFormat(
            "<input><checkpoint_dir>%s</checkpoint_dir><configuration><stanza name='WinRegMon://x'>"
            "<param name='proc'>.*</param>%s</stanza></configuration></input>",
            folder_.path().toStr().c_str(), params);
    }

    const testing::ScopedFolder folder_;
    testing::ScriptedDevice script_;
    const FailingCall noServices_{"OpenSCManagerA", 0, ERROR_ACCESS_DENIED, 0, 9};
};

constexpr char kLocalMachine[] = "<param name='hive'>HKLM</param><param name='type'>nothing</param>";
const std::string kHead = "WinRegistryMonitor::";
const std::string kNoManager = "manageDriver Open SC Manager failed! Error = 5";

Str errors(const std::string &lines, DWORD error = 0)
{
    return testing::logLines("ERROR velmox-regmon: ", lines, error);
}

TEST_F(MonitorTest, ADriverThatCannotBeReachedOrInstalledEndsTheStart)
{
    const struct
    {
        DWORD open;
        int managed;
        std::string log;
    } rows[] = {
        {5, 0, kHead + "StartDriver: CreateFile failed ! error: '(5)%m'"},
        {2, 2, kNoManager + "\n" + kHead + "StartDriver: Unable to install driver.\n" + kNoManager},
    };
    for (const auto &row : rows) {
        script_.opens = {row.open};
        TestMonitor monitor(document(kLocalMachine));
        const CapturedLog log;
        EXPECT_FALSE(monitor.init());
        EXPECT_EQ(noServices_.failed(), row.managed);
        const Str expected = errors(row.log, row.open);
        EXPECT_EQ(log.text().substr(0, expected.size()), expected);
    }
}

/// A session of the software trace that asks for everything and writes down what each thread sends: number
/// and arguments, of numbers their value.
class TraceSession
{
public:
    TraceSession() { current = this; }
    ~TraceSession()
    {
        control_(WMI_DISABLE_EVENTS, nullptr, nullptr, nullptr);
        current = nullptr;
    }

    /// What the thread that made the object has sent, and what all others have.
    std::vector<std::string> own, others;
    std::set<std::string> classes;

private:
    static ULONG WINAPI enroll(WMIDPREQUEST control, void *, LPCGUID, ULONG, TRACE_GUID_REGISTRATION *,
                               const char *, const char *name, TRACEHANDLE *handle)
    {
        EXPECT_STREQ(name, "WinRegistryMonitor");
        *handle = 1;
        current->control_ = control;
        return control(WMI_ENABLE_EVENTS, nullptr, nullptr, nullptr);
    }

    static ULONG __cdecl note(TRACEHANDLE session, ULONG flags, GUID *messages, USHORT number, ...)
    {
        EXPECT_EQ(session, 7u);
        EXPECT_EQ(flags, 43u);
        std::string line = std::to_string(number);
        std::va_list pairs;
        va_start(pairs, number);
        while (const void *data = va_arg(pairs, const void *)) {
            const std::size_t bytes = va_arg(pairs, std::size_t);
            const auto *text = static_cast<const char *>(data);
            line += ' ';
            if (bytes == 4) {
                line += std::to_string(*static_cast<const DWORD *>(data));
            } else {
                // A text goes with its end.
                EXPECT_EQ(text[bytes - 1], '\0') << line;
                line += text;
            }
        }
        va_end(pairs);
        const std::lock_guard guard(current->lock_);
        (GetCurrentThreadId() == current->thread_ ? current->own : current->others).push_back(line);
        current->classes.insert(messages->Data1 == 0xBBD47D81 ? "monitor" : "entry point");
        return ERROR_SUCCESS;
    }

    static inline TraceSession *current = nullptr;
    std::mutex lock_;
    const DWORD thread_ = GetCurrentThreadId();
    WMIDPREQUEST control_ = nullptr;
    const ReplacedCall enroll_{"RegisterTraceGuidsA", enroll};
    const ReplacedCall note_{"TraceMessage", note};
    const ReplacedCall handle_{"GetTraceLoggerHandle", +[](void *) -> TRACEHANDLE { return 7; }};
    const ReplacedCall flags_{"GetTraceEnableFlags", +[](TRACEHANDLE) -> ULONG { return 15; }};
    const FailingCall level_{"GetTraceEnableLevel", 5, 0};
    const FailingCall leave_{"UnregisterTraceGuids", 0, 0};
};

TEST_F(MonitorTest, TracesARunFromOneEndToTheOther)
{
    const CapturedLog log;
    TraceSession session;
    const trace::Provider provider;
    script_.record = testbed::recordBytes({.pid = 0xABCDE, .name = u"\\REGISTRY\\MACHINE\\A"});
    script_.reads = {{0, static_cast<DWORD>(script_.record.size())}};
    HANDLE written = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    script_.atEnd = [written] { WaitForSingleObject(written, 30'000); };
    {
        TestMonitor monitor(document("<param name='type'>set</param>"));
        monitor.onEvent = [&] {
            monitor.stop();
            SetEvent(written);
        };
        ASSERT_TRUE(monitor.init());
        EXPECT_TRUE(monitor.run());
    }
    CloseHandle(written);
    std::string numbers;
    for (const std::string &line : session.own) {
        numbers += line.substr(0, line.find(' ')) + " ";
    }
    EXPECT_EQ(numbers, "10 25 79 80 82 83 85 31 54 56 58 60 35 39 40 41 43 37 38 11 ");
    const std::string worker = " WinRegistryMonitor::MonitorWorker";
    const std::string size = std::to_string(script_.record.size());
    EXPECT_EQ(session.others, (std::vector<std::string>{"64" + worker + " 8192", "68" + worker + " " + size,
                                                        "64" + worker + " 8192", "71" + worker, "72" + worker,
                                                        "74" + worker}));
    EXPECT_TRUE(
        session.own[15].starts_with("41 WinRegistryMonitor::processData \\REGISTRY\\MACHINE\\A SetValue "));
    EXPECT_EQ(session.classes, std::set<std::string>{"monitor"});
}

TEST(EntryPoint, DISABLED_RefusesSafeMode)
{
    TraceSession session;
    const FailingCall boot("GetSystemMetrics", 1, 0);
    wchar_t name[] = L"velmox-regmon.exe";
    wchar_t option[] = L"-disableSysmonMigrate";
    wchar_t *arguments[] = {name, option, nullptr};
    EXPECT_EQ(wmain(2, arguments), -1);
    EXPECT_EQ(session.own,
              (std::vector<std::string>{"13", "10 WinRegistryMonitor::WinRegistryMonitor", "11 run_regmon",
                                        "11 WinRegistryMonitor::~WinRegistryMonitor"}));
}

// In a process of its own, as the program sets up much that stays.
TEST(EntryPoint, RefusesSafeMode)
{
    const testing::ScopedFolder home;
    testing::ChildTest child("EntryPoint.DISABLED_RefusesSafeMode", {},
                             {Str::fromFormat("VELMOX_HOME=%s", home.path().toStr().c_str())});
    EXPECT_TRUE(child.succeeds());
    EXPECT_TRUE(child.output().contains(
        "The 'velmoxdrv-win6' driver cannot be started in safe mode. Error 1084 - This service cannot be "
        "started in Safe Mode ."))
        << child.output().c_str();
}

} // namespace
} // namespace velmox
