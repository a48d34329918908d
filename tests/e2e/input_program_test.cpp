#include "tests/e2e/monitor_test.h"
#include "tests/support/scoped_folder.h"
#include "util/file_system.h"

namespace velmox::e2e {

namespace {

using testbed::RecordFields;

constexpr char kInputs[] = R"([WinRegMon://soft & "ware"]
hive = HKLM\\Software\\.*
index = main

[WinRegMon://example]
disabled = 0
hive = HKLM\\System
type = create

[WinRegMon://off]
disabled = 1
)";

/// The installed monitor as an input program, with stanzas in the store's inputs.conf.
class InputProgramTest : public MonitorTest
{
protected:
    InputProgramTest()
    {
        EXPECT_TRUE(makeDirs(inputs_.dirname(), true));
        velmox::testing::writeWhole(inputs_, kInputs);
    }
    ~InputProgramTest() override { removeFile(inputs_); }

    /// What velmoxd prints for the monitor's scheme.
    static Str printedDocument()
    {
        ChildProcess velmoxd(
            Str::fromFormat("\"%s\\bin\\velmoxd.exe\" print-modinput-config WinRegMon", kHome),
            {Str::fromFormat("VELMOX_HOME=%s", kHome), "VELMOX_DB=C:\\velmox-db"});
        EXPECT_TRUE(velmoxd.waitForExit());
        EXPECT_EQ(velmoxd.exitCode(), 0u);
        EXPECT_EQ(velmoxd.errors(), "");
        return velmoxd.output();
    }

    /// One record for each stanza and one for none.
    void pushRecords()
    {
        push({{RecordFields{.pid = kUnknownPid}, {}},
              {RecordFields{.operation = 11, .pid = kUnknownPid, .name = u"\\REGISTRY\\MACHINE\\SYSTEM\\Key"},
               {}},
              {RecordFields{.pid = kUnknownPid, .name = u"\\REGISTRY\\MACHINE\\SYSTEM\\Key"}, {}}});
    }

    static Str expected()
    {
        ExpectedEvent software{.stanza = "soft & \"ware\"", .index = "main"};
        ExpectedBody body{.status = statusText(0, ERROR_SUCCESS),
                          .pid = kUnknownPid,
                          .keyPath = "HKLM\\SOFTWARE\\Velmox\\Test",
                          .dataType = "REG_SZ"};
        software.body = body.text();
        ExpectedEvent system{.stanza = "example"};
        body.operation = "CreateKey";
        body.keyPath = "HKLM\\SYSTEM\\Key";
        system.body = body.text();
        return expectedStream({software, system});
    }

    const Pathname inputs_ = Pathname::fromUtf8(kHome).join("etc\\system\\local\\inputs.conf");
};

TEST_F(InputProgramTest, TheMonitorRunsOnWhatVelmoxdPrints)
{
    pushRecords();
    MonitorRun run(printedDocument());
    EXPECT_TRUE(run.waitForEvents(2)) << run.log().c_str();
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(run.output(), expected()) << run.log().c_str();
    EXPECT_EQ(pathKind(u"C:\\velmox-db\\modinputs\\WinRegMon"), PathKind::Folder);
}

TEST_F(InputProgramTest, TheSchemesScriptIsTheMonitor)
{
    pushRecords();
    MonitorRun run(printedDocument(), {.program = "scripts\\WinRegMon.exe"});
    EXPECT_TRUE(run.waitForEvents(2)) << run.log().c_str();
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(run.output(), expected()) << run.log().c_str();
}

// Otherwise the monitor would go on with nobody to read it, and keep the driver from the next one.
TEST_F(InputProgramTest, TheMonitorEndsWithTheSchemesScript)
{
    pushRecords();
    MonitorRun run(printedDocument(), {.program = "scripts\\WinRegMon.exe"});
    EXPECT_TRUE(run.waitForEvents(2)) << run.log().c_str();
    run.process().kill();
    EXPECT_TRUE(run.process().waitForExit()) << "the monitor still holds the stream";
}

} // namespace

} // namespace velmox::e2e
