#include "tests/support/child_process.h"
#include "tests/support/pseudo_console.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::ChildProcess;

/// What the helper returns when it ran its script to the end: this, and the number of callbacks.
constexpr DWORD kScriptDone = 200;

Str childCommand(unsigned mode, unsigned pid, const char *script)
{
    return Str::fromFormat("\"%sparent_watch_child.exe\" %u %u %s", testing::programFolder().c_str(), mode,
                           pid, script);
}

/// A process that lives until it is told.
class Watched : public ChildProcess
{
public:
    Watched() : ChildProcess(childCommand(0, 0, "up input")) { waitForOutput("up"); }
};

unsigned pidOfNobody()
{
    Watched process;
    return process.pid();
}

TEST(ParentWatch, SeesAProcessThatIsDeadBefore)
{
    ChildProcess runUntil(childCommand(1, pidOfNobody(), "called"));
    EXPECT_EQ(runUntil.exitCode(), kScriptDone + 1);

    ChildProcess dieWhen(childCommand(2, pidOfNobody(), "called"));
    EXPECT_EQ(dieWhen.exitCode(), 2u);
    EXPECT_EQ(dieWhen.output(), "");
}

TEST(ParentWatch, SeesAProcessDie)
{
    struct Case
    {
        unsigned mode;
        DWORD exitCode;
        const char *output;
    };
    for (const Case &row : {Case{1, kScriptDone + 1, "armed\ncallback\n"}, Case{2, 2, "armed\n"}}) {
        Watched watched;
        ChildProcess child(childCommand(row.mode, watched.pid(), "armed called"));
        EXPECT_TRUE(child.waitForOutput("armed"));
        watched.kill(0xC0000005);
        EXPECT_EQ(child.exitCode(), row.exitCode) << "mode " << row.mode;
        EXPECT_EQ(child.output(), row.output) << "mode " << row.mode;
    }
}

TEST(ParentWatch, SeesAProcessDieDuringTheShutdown)
{
    Watched watched;
    ChildProcess child(childCommand(2, watched.pid(), "trigger closing input"));
    EXPECT_TRUE(child.waitForOutput("callback\nclosing"));
    watched.kill(0);
    EXPECT_EQ(child.exitCode(), 2u);
}

TEST(ParentWatch, SeesNothingOnceItIsStopped)
{
    for (const unsigned mode : {1u, 2u}) {
        for (const char *script : {"stop stopped input", "trigger stop stopped input"}) {
            Watched watched;
            ChildProcess child(childCommand(mode, watched.pid(), script));
            EXPECT_TRUE(child.waitForOutput("stopped"));
            watched.kill(0);
            child.writeLine("go on");
            EXPECT_EQ(child.exitCode(), kScriptDone + (script[0] == 't' ? 1 : 0)) << mode << ": " << script;
        }
    }
}

TEST(ParentWatch, CallsBackOnceAndArmsOnce)
{
    struct Case
    {
        const char *script;
        const char *output;
    };
    for (const Case &row : {Case{"trigger trigger", "callback\n"}, Case{"rearm trigger", "callback\n"},
                            Case{"stop trigger", ""}, Case{"stop stop rearm trigger", "second callback\n"},
                            Case{"trigger stop rearm trigger", "callback\nsecond callback\n"}}) {
        ChildProcess child(childCommand(0, 0, row.script));
        EXPECT_GE(child.exitCode(), kScriptDone);
        EXPECT_EQ(child.output(), row.output) << row.script;
    }
}

TEST(ParentWatch, WatchesTheServerThatTheEnvironmentNames)
{
    Watched ended;
    ended.kill(7); // its handle stays open, so the system knows it still
    struct Case
    {
        Str value;
        DWORD exitCode;
    };
    const Case cases[] = {{"", kScriptDone + 1},
                          {"server", 98},
                          {"0", 98},
                          {"-1", 98},
                          {Str::fromFormat("%u", ended.pid()), 97},
                          {"00000000000000000000000000000000000000000000000000", kScriptDone + 1}};
    for (const Case &row : cases) {
        ChildProcess child(childCommand(3, 0, "trigger called"),
                           {Str::fromFormat("VELMOXD_PROCESSID=%s", row.value.c_str())});
        EXPECT_EQ(child.exitCode(), row.exitCode) << row.value.c_str();
    }
}

TEST(ParentWatch, DiesWithTheServerAtOnce)
{
    Watched server;
    ChildProcess child(childCommand(3, 0, "trigger stop armed input"),
                       {Str::fromFormat("VELMOXD_PROCESSID=  %uabc", server.pid())});
    EXPECT_TRUE(child.waitForOutput("armed"));
    server.kill(0);
    EXPECT_EQ(child.exitCode(), 99u);
}

/// What the helper sets when its script comes to the step "event".
class HelperEvent
{
public:
    bool wait() { return WaitForSingleObject(event_.get(), 30'000) == WAIT_OBJECT_0; }

private:
    KernelHandle event_{CreateEventW(nullptr, FALSE, FALSE, L"velmox-test-step")};
};

TEST(ParentWatch, CallsBackOnceForTwoPressesOfCtrlC)
{
    HelperEvent step;
    testing::PseudoConsole console(childCommand(0, 0, "event pressed called event pressed settle"));
    ASSERT_TRUE(step.wait());
    console.pressCtrlC();
    ASSERT_TRUE(step.wait());
    console.pressCtrlC();
    EXPECT_EQ(console.exitCode(), kScriptDone + 1);
}

TEST(ParentWatch, SeesAProcessDieDuringAShutdownByCtrlC)
{
    HelperEvent step;
    Watched watched;
    testing::PseudoConsole console(childCommand(2, watched.pid(), "event called event idle"));
    ASSERT_TRUE(step.wait());
    console.pressCtrlC();
    ASSERT_TRUE(step.wait());
    watched.kill(0);
    EXPECT_EQ(console.exitCode(), 2u);
}

TEST(ParentWatch, EndsTheProcessWhenItCannotBeSetUp)
{
    Watched watched;
    const Str pid = Str::fromFormat("%u", watched.pid());
    struct Case
    {
        const char *fault;
        unsigned mode;
        const char *script;
        DWORD exitCode;
        Str output;
    };
    const Str waiting = Str::fromFormat("Error waiting for process with PID %s to finish: ", pid.c_str());
    const Case cases[] = {
        {"malloc", 0, "", 1, "Memory error: malloc: 1450\n"},
        {"calloc", 0, "", 1, "Memory error: calloc: 1450\n"},
        {"CreateEventW", 0, "", 1, "Error creating unnamed event: CreateEvent: 1450\n"},
        {"CreateThread", 1, "", 1, "Error creating a new thread: CreateThread: 1450\n"},
        {"SetConsoleCtrlHandler", 0, "", 1, "Error setting up signal handler: SetConsoleCtrlHandler: 1450\n"},
        {"SetEvent", 0, "trigger", 1, "Error signaling event: SetEvent: 1450\n"},
        {"OpenProcess", 1, "called", 1, Str::concat(waiting, "OpenProcess: 1450\n")},
        {"WaitForMultipleObjects", 2, "called", 1, Str::concat(waiting, "WaitForMultipleObjects: 1450\n")},
        {"OpenProcess", 3, "", 98, ""},
        {"_beginthreadex", 3, "", 96, ""},
    };
    for (const Case &row : cases) {
        ChildProcess child(
            childCommand(row.mode, watched.pid(), row.script),
            {Str::fromFormat("FAULT=%s", row.fault), Str::fromFormat("VELMOXD_PROCESSID=%s", pid.c_str())});
        EXPECT_EQ(child.exitCode(), row.exitCode) << row.fault;
        EXPECT_EQ(child.output(), row.output) << row.fault;
    }
}

} // namespace
} // namespace velmox
