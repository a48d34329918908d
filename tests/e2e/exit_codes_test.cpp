#include "testbed/driver_control.h"
#include "testbed/driver_service.h"
#include "tests/e2e/monitor_run.h"
#include "tests/support/pseudo_console.h"
#include "util/file_system.h"
#include "util/open_file.h"

#include <gtest/gtest.h>

namespace velmox::e2e {
namespace {

using testbed::TestDriver;

constexpr DWORD kMinusOne = 0xFFFFFFFF;

Str everythingDocument()
{
    return InputDocument().checkpointDir("C:\\velmox").stanza("WinRegMon://all", {}).text();
}

// Starts the program on its own terms: no process is watched unless the options say so.
RunOptions withOptions(const Str &arguments, const StrVector &environment = {})
{
    RunOptions options;
    options.arguments = arguments;
    options.environment = environment;
    options.watched = false;
    return options;
}

DWORD endOf(const RunOptions &options)
{
    MonitorRun run(everythingDocument(), options);
    return run.waitForEnd();
}

// A number that no process has any more.
DWORD deadPid()
{
    IdleProcess process;
    process.end();
    return process.pid();
}

bool comesToEndWith(const Pathname &path, std::string_view end)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    Str text;
    while (!text.endsWith(end) && std::chrono::steady_clock::now() < deadline) {
        FileStar file = openFile(path, "rb");
        char bytes[4096];
        const std::ptrdiff_t length = file.isOpen() ? file.read(bytes, sizeof bytes) : 0;
        text = Str(bytes, static_cast<std::size_t>(std::max<std::ptrdiff_t>(length, 0)));
        Sleep(10);
    }
    return text.endsWith(end);
}

class ExitCodesTest : public ::testing::Test
{
protected:
    ExitCodesTest() { testbed::startDriverService(); }
    ~ExitCodesTest() override { testbed::removeDriverService(); }

    // Queues a record that becomes an event.
    static void pushRecord(TestDriver &driver)
    {
        driver.push(testbed::recordBuffer({testbed::RecordFields{}}));
    }

    static bool polls(TestDriver &driver)
    {
        return driver.waitFor([](const VelmoxTestState &state) { return state.reads > 0; });
    }
};

TEST_F(ExitCodesTest, BadOptionsEndWithTheUsage)
{
    for (const char *arguments : {"-run-until-pid-dies", "-die-when-pid-dies abc", "-index", "-inclusive"}) {
        MonitorRun run(everythingDocument(), withOptions(arguments));
        EXPECT_EQ(run.waitForEnd(), 1u) << arguments;
        EXPECT_TRUE(run.log().contains("velmox-regmon.exe [--path-driver <dir> | -run-until-pid-dies PID]"))
            << arguments;
        EXPECT_EQ(run.output(), "");
    }
}

TEST_F(ExitCodesTest, WithoutAnInstallationNothingStarts)
{
    MonitorRun run(everythingDocument(), withOptions("", {"VELMOX_HOME="}));
    EXPECT_EQ(run.waitForEnd(), kMinusOne);
    EXPECT_EQ(run.errors(), "VELMOX_HOME must be set. Stopping.\r\n");
}

TEST_F(ExitCodesTest, RunUntilEndsInOrderWheneverTheProcessDied)
{
    TestDriver driver;
    pushRecord(driver);
    MonitorRun during(everythingDocument());
    EXPECT_TRUE(during.process().waitForOutput([](const Str &text) { return text.contains("</event>"); }));
    EXPECT_EQ(during.stop(), 0u);
    EXPECT_TRUE(during.output().endsWith("</stream>\r\n"));
    testbed::startDriverService();
    EXPECT_EQ(endOf(withOptions(Str::fromFormat("-run-until-pid-dies %lu", deadPid()))), 0u);
}

TEST_F(ExitCodesTest, DieWhenEndsAtOnceWithTwo)
{
    EXPECT_EQ(endOf(withOptions(Str::fromFormat("-die-when-pid-dies %lu", deadPid()))), 2u);
    IdleProcess server;
    TestDriver driver;
    pushRecord(driver);
    MonitorRun run(everythingDocument(),
                   withOptions(Str::fromFormat("-die-when-pid-dies %lu", server.pid())));
    EXPECT_TRUE(run.process().waitForOutput([](const Str &text) { return text.contains("</event>"); }));
    server.end();
    EXPECT_EQ(run.waitForEnd(), 2u);
    EXPECT_FALSE(run.output().contains("</stream>"));
}

TEST_F(ExitCodesTest, TheServerOfTheEnvironmentIsWatchedWithoutAnOption)
{
    EXPECT_EQ(endOf(withOptions("", {"VELMOXD_PROCESSID=garbage"})), 98u);
    IdleProcess server;
    TestDriver driver;
    MonitorRun run(everythingDocument(),
                   withOptions("", {Str::fromFormat("VELMOXD_PROCESSID=%lu", server.pid())}));
    EXPECT_TRUE(polls(driver));
    server.end();
    EXPECT_EQ(run.waitForEnd(), 99u);
}

TEST_F(ExitCodesTest, AServerThatHasEndedButIsStillHeldGivesNinetySeven)
{
    // The object holds a handle, so the number still opens.
    ChildProcess server("cmd.exe /c exit 0");
    ASSERT_TRUE(server.waitForExit());
    EXPECT_EQ(endOf(withOptions("", {Str::fromFormat("VELMOXD_PROCESSID=%lu", server.pid())})), 97u);
}

TEST_F(ExitCodesTest, APieceOfATypeThatDoesNotCompileReachesTheEntry)
{
    MonitorRun run(InputDocument().stanza("WinRegMon://all", {{"type", "(set|delete)"}}).text());
    EXPECT_EQ(run.waitForEnd(), kMinusOne);
    EXPECT_TRUE(run.log().contains("run_regmon: Fail to run Registry Monitor: 'Regex: "));
}

TEST_F(ExitCodesTest, CtrlCOnTheConsoleEndsInOrder)
{
    const Pathname input = Pathname::fromUtf8("C:\\ctrl-c-input.xml");
    const Pathname output = Pathname::fromUtf8("C:\\ctrl-c-output.xml");
    removeFile(output);
    const Str document = everythingDocument();
    FileStar file = openFile(input, "wb");
    file.write(document.data(), document.size());
    file.close();
    SetEnvironmentVariableA("VELMOX_HOME", kHome);
    TestDriver driver;
    pushRecord(driver);
    velmox::testing::PseudoConsole console(
        "cmd.exe /c C:\\velmox\\bin\\velmox-regmon.exe -disableSysmonMigrate "
        "< C:\\ctrl-c-input.xml > C:\\ctrl-c-output.xml");
    EXPECT_TRUE(driver.waitFor([](const VelmoxTestState &state) { return state.recordsDelivered > 0; }));
    console.pressCtrlC();
    console.pressCtrlC();
    EXPECT_NE(console.exitCode(), STILL_ACTIVE);
    // The command processor may be gone before the program is.
    EXPECT_TRUE(comesToEndWith(output, "</event>\r\n</stream>\r\n"));
}

} // namespace
} // namespace velmox::e2e
