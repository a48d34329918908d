#include "tests/e2e/monitor_test.h"
#include "tests/support/pseudo_console.h"

namespace velmox::e2e {
namespace {

constexpr DWORD kMinusOne = 0xFFFFFFFF;

class ExitCodesTest : public MonitorTest
{
};

Str dieWhen(unsigned pid)
{
    return Str::fromFormat("-die-when-pid-dies %u", pid);
}

Str runUntil(unsigned pid)
{
    return Str::fromFormat("-run-until-pid-dies %u", pid);
}

Str serverIs(unsigned pid)
{
    return Str::fromFormat("VELMOXD_PROCESSID=%u", pid);
}

// A number that no process has any more.
unsigned deadPid()
{
    IdleProcess process;
    process.end();
    return process.pid();
}

TEST_F(ExitCodesTest, OfAProgramThatHasNothingToWaitFor)
{
    // The object holds a handle, so the number still opens.
    ChildProcess ended("cmd.exe /c exit 0");
    ASSERT_TRUE(ended.waitForEnd());
    const InputDocument badType = InputDocument().stanza("WinRegMon://all", {{"type", "(set|delete)"}});
    const struct
    {
        InputDocument document;
        Str arguments;
        StrVector environment;
        DWORD exitCode;
        const char *log;
    } rows[] = {
        {everything(),
         "-inclusive",
         {},
         1,
         "velmox-regmon.exe [--path-driver <dir> | -run-until-pid-dies PID]"},
        {everything(), "", {"VELMOX_HOME="}, kMinusOne, "VELMOX_HOME must be set. Stopping.\r\n"},
        {badType, "", {}, kMinusOne, "run_regmon: Fail to run Registry Monitor: 'Regex: "},
        {everything(), runUntil(deadPid()), {}, 0, "Monitor Worker Exiting..."},
        {everything(), dieWhen(deadPid()), {}, 2, ""},
        {everything(), "", {serverIs(ended.pid())}, 97, ""},
        {everything(), "", {"VELMOXD_PROCESSID=garbage"}, 98, ""},
    };
    for (const auto &row : rows) {
        MonitorRun run(row.document.text(),
                       {.arguments = row.arguments, .environment = row.environment, .watched = false});
        EXPECT_EQ(run.waitForEnd(), row.exitCode) << row.arguments.c_str();
        expectLogged(run.log(), row.log);
        EXPECT_EQ(run.output(), "");
    }
    // One that died before it had sent its input is seen all the same.
    MonitorRun waiting("<input>", {.arguments = dieWhen(deadPid()), .watched = false, .inputEnds = false});
    EXPECT_EQ(waiting.waitForEnd(), 2u);
}

TEST_F(ExitCodesTest, OfAProgramWhoseServerDies)
{
    for (const DWORD exitCode : {0, 2, 99}) {
        driver.reset();
        push({{{.pid = kUnknownPid}, {}}});
        IdleProcess server;
        RunOptions options = {.watched = false};
        if (exitCode == 99) {
            options.environment = {serverIs(server.pid())};
        } else {
            options.arguments = exitCode == 2 ? dieWhen(server.pid()) : runUntil(server.pid());
        }
        MonitorRun run(everything().text(), options);
        EXPECT_TRUE(run.waitForEvents(1)) << run.log().c_str();
        server.end();
        EXPECT_EQ(run.waitForEnd(), exitCode);
        EXPECT_EQ(run.output().endsWith("</stream>\r\n"), exitCode == 0) << exitCode;
    }
}

// On a console of its own, which the monitor that it starts shares.
TEST(MonitorOnConsole, DISABLED_EndsInOrder)
{
    SetConsoleCtrlHandler([](DWORD) { return TRUE; }, TRUE);
    const Str program = velmox::testing::ChildTest::argument().toStr();
    MonitorRun run(everything().text(), {.program = program.c_str(), .watched = false});
    EXPECT_EQ(run.waitForEnd(), 0u);
    EXPECT_TRUE(run.output().endsWith("</event>\r\n</stream>\r\n"));
}

TEST_F(ExitCodesTest, OfAProgramAtCtrlC)
{
    for (const char *program : {"velmox-regmon.exe", "scripts\\WinRegMon.exe"}) {
        driver.reset();
        push({{{.pid = kUnknownPid}, {}}});
        velmox::testing::PseudoConsole console(velmox::testing::ChildTest::commandLine(
            "MonitorOnConsole.DISABLED_EndsInOrder", Pathname::fromUtf8(program)));
        EXPECT_TRUE(waitUntilDelivered(1)) << program;
        console.pressCtrlC();
        console.pressCtrlC();
        EXPECT_EQ(console.exitCode(), 0u) << program;
    }
}

} // namespace
} // namespace velmox::e2e
