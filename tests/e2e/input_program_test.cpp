#include "tests/e2e/monitor_test.h"
#include "tests/support/scoped_folder.h"
#include "util/files/file_system.h"

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
        const RecordFields software = {.pid = kUnknownPid};
        const RecordFields system = {
            .operation = 11, .pid = kUnknownPid, .name = u"\\REGISTRY\\MACHINE\\SYSTEM\\Key"};
        ExpectedBody set = bodyOf(software);
        set.dataType = "REG_SZ";
        ExpectedBody created = bodyOf(system);
        created.dataType = "REG_SZ";
        created.operation = "CreateKey";
        cases_ = {{software, ExpectedEvent{.stanza = "soft & \"ware\"", .index = "main", .body = set.text()}},
                  {system, ExpectedEvent{.stanza = "example", .body = created.text()}},
                  {{.pid = kUnknownPid, .name = system.name}, {}}};
        push(cases_);
    }
    ~InputProgramTest() override { removeFile(inputs_); }

    /// What velmoxd prints for the monitor's scheme.
    static Str printedDocument()
    {
        ChildProcess velmoxd(installed("velmoxd.exe", "print-modinput-config WinRegMon"),
                             {Str::fromFormat("VELMOX_HOME=%s", kHome), "VELMOX_DB=C:\\velmox-db"},
                             Streams::Apart);
        EXPECT_TRUE(velmoxd.waitForEnd());
        EXPECT_EQ(velmoxd.exitCode(), 0u);
        EXPECT_EQ(velmoxd.errorBytes(), "");
        return velmoxd.outputBytes();
    }

    const Pathname inputs_ = Pathname::fromUtf8(kHome).join("etc\\system\\local\\inputs.conf");
    std::vector<Case> cases_;
};

TEST_F(InputProgramTest, TheMonitorOrItsScriptRunsOnWhatVelmoxdPrints)
{
    for (const char *program : {"velmox-regmon.exe", "scripts\\WinRegMon.exe"}) {
        driver.reset();
        push(cases_);
        MonitorRun run(printedDocument(), {.program = program});
        EXPECT_TRUE(run.waitForEvents(2)) << run.log().c_str();
        EXPECT_EQ(run.stop(), 0u);
        EXPECT_EQ(run.output(), expectedStream(eventsOf(cases_))) << run.log().c_str();
    }
    EXPECT_EQ(pathKind(u"C:\\velmox-db\\modinputs\\WinRegMon"), PathKind::Folder);
}

// Otherwise the monitor would go on with nobody to read it, and keep the driver from the next one.
TEST_F(InputProgramTest, TheMonitorEndsWithTheSchemesScript)
{
    MonitorRun run(printedDocument(), {.program = "scripts\\WinRegMon.exe"});
    EXPECT_TRUE(run.waitForEvents(2)) << run.log().c_str();
    run.process().kill(1);
    EXPECT_TRUE(run.process().waitForEnd()) << "the monitor still holds the stream";
}

TEST(SchemesScript, SaysThatTheMonitorIsMissing)
{
    const velmox::testing::ScopedFolder bin;
    const Pathname script = bin / "scripts\\WinRegMon.exe";
    ASSERT_TRUE(makeDirs(script.dirname(), true));
    ASSERT_TRUE(CopyFileW(asWide(Pathname::fromUtf8(kHome).join("bin\\scripts\\WinRegMon.exe")),
                          asWide(script), TRUE));
    ChildProcess process(Str::fromFormat("\"%s\"", script.toStr().c_str()));
    EXPECT_EQ(process.exitCode(), 1u);
    EXPECT_TRUE(process.output().startsWith(
        Str::fromFormat("Unable to run \"%s\": ", (bin / "velmox-regmon.exe").toStr().c_str())))
        << process.output().c_str();
}

} // namespace

} // namespace velmox::e2e
