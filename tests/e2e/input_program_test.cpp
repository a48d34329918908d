#include "pipeline/input/explain/explain_command.h"
#include "pipeline/input/xml/config_xml_streaming_parser.h"
#include "tests/e2e/monitor_test.h"
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
        // The option's value, which the script has to hand on as it was given.
        cases_ = {{software, ExpectedEvent{.stanza = "soft & \"ware\"", .index = "main", .body = set.text()}},
                  {system, ExpectedEvent{.stanza = "example", .index = "a b", .body = created.text()}},
                  {{.pid = kUnknownPid, .name = system.name}, {}}};
        push(cases_);
    }
    ~InputProgramTest() override { removeFile(inputs_); }

    static Str velmoxdOutput(const Str &arguments)
    {
        ChildProcess velmoxd(installed("velmoxd.exe", arguments),
                             {Str::fromFormat("VELMOX_HOME=%s", kHome), "VELMOX_DB=C:\\velmox-db"},
                             Streams::Apart);
        EXPECT_TRUE(velmoxd.waitForEnd());
        // What the monitor logs of a pattern without a root, `explain` lets pass.
        EXPECT_TRUE(velmoxd.errorBytes().empty() || arguments.startsWith("explain"));
        EXPECT_EQ(velmoxd.exitCode(), velmoxd.outputBytes().endsWith("\ndropped\n") ? 1u : 0u);
        return velmoxd.outputBytes();
    }
    static Str printedDocument() { return velmoxdOutput("print-modinput-config WinRegMon"); }

    const Pathname inputs_ = Pathname::fromUtf8(kHome).join("etc\\system\\local\\inputs.conf");
    std::vector<Case> cases_;
};

TEST_F(InputProgramTest, TheMonitorOrItsScriptRunsOnWhatVelmoxdPrints)
{
    for (const char *program : {"velmox-regmon.exe", "scripts\\WinRegMon.exe"}) {
        driver.reset();
        push(cases_);
        MonitorRun run(printedDocument(), {.program = program, .arguments = "-index \"a b\""});
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

// Keys and processes as people write them, each with what the driver has for it; operations with their codes.
constexpr char kKeys[] =
    R"(HKLM\SOFTWARE\Velmox \REGISTRY\MACHINE\SOFTWARE\Velmox HKLM\SOFTWARE\Velmoxen )"
    R"(\REGISTRY\MACHINE\SOFTWARE\Velmoxen \REGISTRY\A\{1}\x \REGISTRY\A\{1}\x )"
    R"(HKEY_LOCAL_MACHINE\software\velmox\A&b \REGISTRY\MACHINE\Software\Velmox\a&b )"
    R"(HKLM\SYSTEM\CurrentControlSet\Services\c \REGISTRY\MACHINE\System\ControlSet001\Services\c )"
    R"(HKLM\SYSTEM\ControlSet002\Services\x \REGISTRY\MACHINE\SYSTEM\ControlSet002\Services\x )"
    // The number that each of Wine's users has.
    R"(HKCU\Software\Velmox\c \REGISTRY\USER\S-1-5-21-0-0-0-1000\Software\Velmox\c )"
    R"(HKU\S-1-5-21-9\Äpfel \REGISTRY\USER\S-1-5-21-9\Äpfel)";
constexpr char kProcesses[] = R"(- - C:\windows\regedit.exe \Device\HarddiskVolume1\windows\REGEDIT.EXE )"
                              R"(\Device\tool.exe \Device\tool.exe)";
constexpr char kOperations[] =
    "delete 15 set 16 SetValue 16 DeleteKey 17 rename 19 query 23 create 27 open 29 close 25";
constexpr char kHives[] =
    R"(.* .* HKLM\\Software\\Velmox HKLM\\SOFTWARE\\Velmox(\\.*)? HKLM\\(SOFTWARE|SYSTEM)\\.+ )"
    R"(HKCU\\Software\\.* HKLM\\SYSTEM\\CurrentControlSet\\Services\\.* )"
    R"(HKLM\\SYSTEM\\ControlSet00\d\\.* HKLM\\.* HKU\\S-1-5-21-[^\\]+\\.* .*\\velmox\\(a&b|c).*)";
constexpr char kProcs[] = R"(.* .* .* .* C:\\windows\\.* tool\.exe$ ^$)";
constexpr char kTypes[] = "set|delete|create|rename set|create|open .* SET|delete Open|create e";

/// Words that belong together, out of as many groups as there are.
StrVector pick(const char *text, std::ptrdiff_t perGroup = 1)
{
    // Goes on when tests are repeated.
    static std::mt19937 dice;
    StrVector words;
    StrSegment(text).splitInto(words, " ");
    const auto first =
        words.begin() + static_cast<std::ptrdiff_t>(dice() % (words.size() / perGroup)) * perGroup;
    return {first, first + perGroup};
}

/// What `explain` has to end with for the process's event.
Str lineOf(std::string_view stream, std::uint32_t pid)
{
    const std::size_t at = stream.find(Str::fromFormat("\npid=%u\r\n", pid));
    if (at == stream.npos) {
        return "dropped\n";
    }
    std::string_view event = stream.substr(stream.rfind("<event", at));
    event = event.substr(0, event.find("</event>"));
    const auto between = [event](std::string_view from, char to) {
        const std::size_t begin = event.find(from) + from.size();
        return begin < from.size() ? Str("-") : Str(event.substr(begin, event.find(to, begin) - begin));
    };
    return Str("accepted stanza=") << between("<event stanza=\"", '"') << " index=" << between("<index>", '<')
                                   << '\n';
}

// With all that lies between: the settings, the document that velmoxd prints of them, and the driver, which
// reports what it was asked for. A program start for each question would take most of the time.
TEST_F(InputProgramTest, ExplainSaysOfRandomStanzasAndOperationsWhatTheMonitorReports)
{
    const velmox::testing::CapturedLog quiet;
    const auto lastLine = [](const Str &text) { return text.substr(text.rfind("\n", text.size() - 2) + 1); };
    std::size_t all = 0;
    for (unsigned round = 1; round <= 4; ++round) {
        Str settings;
        for (unsigned left = round; left > 0; --left) {
            settings << "[WinRegMon://s" << left << "]\nhive = " << pick(kHives)[0]
                     << "\nproc = " << pick(kProcs)[0] << "\ntype = " << pick(kTypes)[0]
                     << "\nindex = " << pick("main other")[0] << "\ndisabled = " << (left == 2) << "\n";
        }
        velmox::testing::writeWhole(inputs_, settings);
        const Str document = printedDocument();
        ConfigXmlStreamingParser parser;
        parser.feed(document.data(), document.size());
        testbed::Bytes records;
        std::map<std::uint32_t, Str> answers;
        std::size_t accepted = 0;
        for (std::uint32_t pid = kUnknownPid; answers.size() < 50; pid += 4) {
            const StrVector key = pick(kKeys, 2);
            const StrVector process = pick(kProcesses, 2);
            const StrVector operation = pick(kOperations, 2);
            testbed::appendRecord(records, testbed::imageLoaded(pid, WideStr::fromUtf8(process[1])));
            testbed::appendRecord(records,
                                  {.operation = static_cast<std::uint32_t>(std::atoi(operation[1].c_str())),
                                   .pid = pid,
                                   .name = std::u16string(WideStr::fromUtf8(key[1]))});
            StrVector question = {"--key", key[0], "--operation", operation[0]};
            if (process[0] != "-") {
                question.insert(question.end(), {"--process", process[0]});
            }
            const auto answer = answerExplain(question, [&parser] { return parser.stanzas(); });
            answers[pid] = lastLine(answer->output);
            accepted += answer->exitCode == 0 ? 1 : 0;
            if (answers.size() == 1) {
                EXPECT_EQ(lastLine(velmoxdOutput(Str("explain ") << joined(question, " "))), answers[pid]);
            }
        }
        driver.reset();
        driver.push(records);
        MonitorRun run(document);
        EXPECT_TRUE(run.waitForEvents(accepted)) << run.log().c_str();
        EXPECT_TRUE(driver.waitFor(
            [](const VelmoxTestState &state) { return state.recordsWaiting == 0 && state.readsEmpty != 0; }));
        EXPECT_EQ(run.stop(), 0u);
        for (const auto &[pid, answer] : answers) {
            EXPECT_EQ(answer, lineOf(run.output(), pid)) << settings.c_str();
        }
        all += accepted;
    }
    EXPECT_GT(all, 20u) << "too little is compared";
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
