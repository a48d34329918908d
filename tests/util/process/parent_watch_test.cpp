#include "tests/support/pseudo_console.h"
#include "util/process/parent_watch.h"

namespace velmox {
namespace {

/// What the helper returns when it ran its script to the end: this, and the number of callbacks.
constexpr DWORD kScriptDone = 200;
constexpr UINT kTimedOut = 77;
constexpr DWORD kLimit = 100'000;
constexpr const char *kHelper = "ParentWatchChild.DISABLED_Follows";
/// Written ahead of all else.
constexpr std::string_view kReady = "helper:\n";

// Never closed: a watch ends the process by `exit` on its own thread while the main one may come to wait.
const HANDLE called = CreateEventW(nullptr, TRUE, FALSE, nullptr);
std::atomic<unsigned> calls = 0;

void say(const char *line)
{
    std::printf("%s\n", line);
    std::fflush(stdout);
}

void countCall(void *argument)
{
    ++calls;
    say(static_cast<const char *>(argument));
    SetEvent(called);
}

/// The watch's handler of console signals, as the system would call it; no other process here can send
/// Ctrl-Break.
PHANDLER_ROUTINE watchHandler = nullptr;
const ReplacedCall *handlerCalls = nullptr;

BOOL WINAPI keepHandler(PHANDLER_ROUTINE handler, BOOL add)
{
    watchHandler = watchHandler != nullptr ? watchHandler : handler;
    return handlerCalls->original<decltype(keepHandler)>()(handler, add);
}

void signal(DWORD type)
{
    say(watchHandler(type) ? "handled" : "passed on");
}

void await(bool come)
{
    if (!come) {
        ExitProcess(kTimedOut);
    }
}

const std::pair<std::string_view, void (*)()> kSteps[] = {
    {"trigger", triggerShutdown},
    {"stop", stopParentWatch},
    {"rearm",
     [] {
         static char argument[] = "second callback";
         waitForParentOrSignal(countCall, argument, ParentWatchMode::ConsoleOnly, 0);
     }},
    {"called", [] { await(WaitForSingleObject(called, kLimit) == WAIT_OBJECT_0); }},
    {"input",
     [] {
         char line[16];
         await(std::fgets(line, sizeof line, stdin) != nullptr);
     }},
    {"event", [] { SetEvent(OpenEventW(EVENT_MODIFY_STATE, FALSE, L"velmox-test-step")); }},
    {"idle", [] { Sleep(kLimit); }},
    {"close", [] { signal(CTRL_CLOSE_EVENT); }},
    {"break", [] { signal(CTRL_BREAK_EVENT); }},
};

void follow(const Str &step)
{
    for (const auto &[name, act] : kSteps) {
        if (step == name) {
            act();
            return;
        }
    }
    say(step.c_str());
}

/// The argument is "MODE PID FAULT STEP...": arms a watch and follows the script. FAULT is "-" or
/// "CALL,ERROR": the call fails once.
TEST(ParentWatchChild, DISABLED_Follows)
{
    StrVector words;
    StrVector fault;
    const Str argument = ChildTest::argument().toStr();
    StrSegment(argument).splitInto(words, " ", Str::kNoLimit);
    StrSegment(words[2]).splitInto(fault, ",", Str::kNoLimit);
    say("helper:");
    if (fault.size() == 2) {
        (new FailingCall(fault[0].c_str(), 0, static_cast<DWORD>(fault[1].toInt(0))))->onAnyThread();
    } else {
        handlerCalls = new ReplacedCall("SetConsoleCtrlHandler", keepHandler);
    }
    static char callback[] = "callback";
    waitForParentOrSignal(countCall, callback, static_cast<ParentWatchMode>(words[0].toInt(0)),
                          static_cast<unsigned>(words[1].toUInt64(0)));
    for (std::size_t at = 3; at < words.size(); ++at) {
        follow(words[at]);
    }
    ExitProcess(kScriptDone + calls);
}

Pathname script(unsigned mode, unsigned pid, const char *steps, const char *fault = "-")
{
    return Pathname(WideStr::fromUtf8(Str::fromFormat("%u %u %s %s", mode, pid, fault, steps)));
}

struct Helper : ChildTest
{
    explicit Helper(const Pathname &script, const StrVector &environment = {})
        : ChildTest(kHelper, script, environment)
    {
    }
    Str said()
    {
        const Str all = output();
        return all.substr(all.find(kReady) + kReady.size());
    }
};

/// A process that lives until it is told.
struct Watched : Helper
{
    Watched() : Helper(script(0, 0, "up input")) { waitForOutput("up"); }
};

unsigned pidOfNobody()
{
    return Watched().pid();
}

TEST(ParentWatch, SeesAProcessThatIsDeadBefore)
{
    for (const char *fault : {"-", "OpenProcess,3"}) {
        EXPECT_EQ(Helper(script(1, pidOfNobody(), "called", fault)).exitCode(), kScriptDone + 1) << fault;
        Helper dieWhen(script(2, pidOfNobody(), "called", fault));
        EXPECT_EQ(dieWhen.exitCode(), 2u) << fault;
        EXPECT_EQ(dieWhen.said(), "") << fault;
    }
}

TEST(ParentWatch, SeesAProcessDie)
{
    const std::tuple<unsigned, const char *, DWORD, const char *> cases[] = {
        {1, "armed called", kScriptDone + 1, "armed\ncallback\n"},
        {2, "armed called", 2, "armed\n"},
        {2, "trigger armed input", 2, "callback\narmed\n"},
    };
    for (const auto &[mode, steps, exitCode, said] : cases) {
        Watched watched;
        Helper child(script(mode, watched.pid(), steps));
        EXPECT_TRUE(child.waitForOutput("armed\n"));
        watched.kill(0xC0000005);
        EXPECT_EQ(child.exitCode(), exitCode) << mode << steps;
        EXPECT_EQ(child.said(), said) << mode << steps;
    }
}

TEST(ParentWatch, SeesNothingOnceItIsStopped)
{
    for (const unsigned mode : {1u, 2u}) {
        for (const char *steps : {"stop stopped input", "trigger stop stopped input"}) {
            Watched watched;
            Helper child(script(mode, watched.pid(), steps));
            EXPECT_TRUE(child.waitForOutput("stopped\n"));
            watched.kill(0);
            child.writeLine("go on");
            EXPECT_EQ(child.exitCode(), kScriptDone + (steps[0] == 't' ? 1 : 0)) << mode << ": " << steps;
        }
    }
}

TEST(ParentWatch, CallsBackOnceAndArmsOnce)
{
    const std::tuple<const char *, DWORD, const char *> cases[] = {
        {"trigger trigger", 1, "callback\n"},
        {"rearm trigger", 1, "callback\n"},
        {"close break break", 1, "passed on\ncallback\nhandled\nhandled\n"},
        {"stop trigger", 0, ""},
        {"trigger stop stop rearm trigger", 2, "callback\nsecond callback\n"},
    };
    for (const auto &[steps, callbacks, said] : cases) {
        Helper child(script(0, 0, steps));
        EXPECT_EQ(child.exitCode(), kScriptDone + callbacks);
        EXPECT_EQ(child.said(), said) << steps;
    }
}

TEST(ParentWatch, WatchesTheServerThatTheEnvironmentNames)
{
    Watched ended;
    ended.kill(7); // its handle stays open, so the system knows it still
    const Str pid = Str::fromFormat("%u", ended.pid());
    const std::tuple<Str, const char *, DWORD> cases[] = {
        {"", "-", kScriptDone + 1},
        {"server", "-", 98},
        {pid, "-", 97},
        {pid, "GetExitCodeProcess,5", 99},
    };
    for (const auto &[value, fault, exitCode] : cases) {
        Helper child(script(3, 0, exitCode == 99 ? "idle" : "trigger called", fault),
                     {Str::concat("VELMOXD_PROCESSID=", value)});
        EXPECT_EQ(child.exitCode(), exitCode) << value.c_str() << fault;
    }
}

TEST(ParentWatch, DiesWithTheServerAtOnce)
{
    Watched server;
    Helper child(script(3, 0, "trigger stop armed input"),
                 {Str::fromFormat("VELMOXD_PROCESSID=  %uabc", server.pid())});
    EXPECT_TRUE(child.waitForOutput("armed\n"));
    server.kill(0);
    EXPECT_EQ(child.exitCode(), 99u);
}

TEST(ParentWatch, SeesAProcessDieDuringAShutdownByCtrlC)
{
    Watched watched;
    const KernelHandle event(CreateEventW(nullptr, FALSE, FALSE, L"velmox-test-step"));
    const auto await = [&event] { return WaitForSingleObject(event.get(), kLimit) == WAIT_OBJECT_0; };
    PseudoConsole console(
        ChildTest::commandLine(kHelper, script(2, watched.pid(), "event called event idle")));
    ASSERT_TRUE(await());
    console.pressCtrlC();
    ASSERT_TRUE(await());
    watched.kill(0);
    EXPECT_EQ(console.exitCode(), 2u);
}

TEST(ParentWatch, EndsTheProcessWhenItCannotBeSetUp)
{
    Watched watched;
    const Str pid = Str::fromFormat("%u", watched.pid());
    const std::tuple<const char *, unsigned, const char *, DWORD, Str> cases[] = {
        {"CreateThread,1450", 1, "", 1, "Error creating a new thread: CreateThread: 1450\n"},
        {"SetConsoleCtrlHandler,1450", 0, "", 1,
         "Error setting up signal handler: SetConsoleCtrlHandler: 1450\n"},
        {"OpenProcess,1450", 1, "called", 1,
         Str::fromFormat("Error waiting for process with PID %s to finish: OpenProcess: 1450\n",
                         pid.c_str())},
        {"_beginthreadex,1450", 3, "", 96, ""},
    };
    for (const auto &[fault, mode, steps, exitCode, said] : cases) {
        Helper child(script(mode, watched.pid(), steps, fault), {Str::concat("VELMOXD_PROCESSID=", pid)});
        EXPECT_EQ(child.exitCode(), exitCode) << fault;
        EXPECT_EQ(child.said(), said) << fault;
    }
}

} // namespace
} // namespace velmox
