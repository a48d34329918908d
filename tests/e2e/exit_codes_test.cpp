#include "tests/e2e/monitor_test.h"
#include "tests/support/pseudo_console.h"
#include "tests/support/scoped_folder.h"
#include "util/files/file_system.h"

namespace velmox::e2e {
namespace {

constexpr DWORD kMinusOne = 0xFFFFFFFF;

class ExitCodesTest : public MonitorTest
{
protected:
    void pushRecord() { push({{{.pid = kUnknownPid}, {}}}); }
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
}

TEST_F(ExitCodesTest, OfAProgramWhoseServerDies)
{
    for (const DWORD exitCode : {0, 2, 99}) {
        driver.reset();
        pushRecord();
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

TEST_F(ExitCodesTest, CtrlCOnTheConsoleEndsInOrder)
{
    for (const char *program : {"velmox-regmon.exe", "scripts\\WinRegMon.exe"}) {
        const velmox::testing::ScopedFolder folder;
        velmox::testing::writeWhole(folder / "in", everything().text());
        driver.reset();
        pushRecord();
        velmox::testing::PseudoConsole console(
            Str::fromFormat("cmd.exe /c %s\\bin\\%s -disableSysmonMigrate < %s > %s", kHome, program,
                            (folder / "in").toStr().c_str(), (folder / "out").toStr().c_str()),
            {Str::fromFormat("VELMOX_HOME=%s", kHome)});
        EXPECT_TRUE(waitUntilDelivered(1)) << program;
        console.pressCtrlC();
        console.pressCtrlC();
        EXPECT_NE(console.exitCode(), STILL_ACTIVE);
        // The command processor may be gone before the program is, which holds its output until then.
        EXPECT_TRUE(velmox::testing::readLeftBehind(folder / "out").endsWith("</event>\r\n</stream>\r\n"))
            << program;
    }
}

} // namespace
} // namespace velmox::e2e
