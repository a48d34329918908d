#include "tests/e2e/monitor_test.h"

namespace velmox::e2e {

namespace {

/// What the server writes that leaves the monitor nothing to do: it ends by itself, before it looks for the
/// driver.
class RefusedInputTest : public testing::Test
{
protected:
    static void check(std::string_view document, const Str &message, const RunOptions &options = {})
    {
        MonitorRun run(document, options);
        EXPECT_EQ(run.waitForEnd(), 0u);
        EXPECT_EQ(run.output(), "");
        EXPECT_EQ(run.errors(), "");
        expectLogged(run.log(), message);
        EXPECT_EQ(run.log().contains(" ERROR "), !message.empty()) << run.log().c_str();
    }
};

Str inConfiguration(const Str &text)
{
    return Str::fromFormat("WinRegistryMonitor::configure: Failed to get configuration settings: '%s",
                           text.c_str());
}

TEST_F(RefusedInputTest, EndsQuietlyWithoutAnEnabledStanza)
{
    check("", "");
    check(InputDocument().text(), "");
    check(InputDocument()
              .stanza("default", {{"hive", ".*"}})
              .stanza("WinRegMon://a", {{"disabled", "1"}})
              .stanza("WinRegMon://b", {{"disabled", "true"}})
              .stanza("WinRegMon://c", {{"disabled", "perhaps"}})
              .stanza("regmon:ignored", {{"disabled", "1"}})
              .text(),
          "");
    check(InputDocument().stanza("regmon:foo", {}).text(),
          "Found a stanza named 'regmon:foo' without the WinRegMon prefix, this will not be processed.");
    check("<other>" + std::string(InputDocument().stanza("WinRegMon://a", {}).text().c_str()) + "</other>",
          "");
}

TEST_F(RefusedInputTest, TellsWhichElementItDoesNotKnow)
{
    const Str foo =
        "Unexpected entity \"foo\" found under path \"\\input\\foo\" in the XML configuration input.";
    check("<input><foo/></input>", inConfiguration(foo));
    check("<input><foo/></input>", Str("ERROR ModularInputs - ").append(foo));
    check("<input><configuration><stanza name=\"WinRegMon://a\"><param_list name=\"hive\">",
          inConfiguration("Unexpected entity \"param_list\" found under path "
                          "\"\\input\\configuration\\stanza\\param_list\" in the XML configuration input.'"));
}

TEST_F(RefusedInputTest, OneBadPatternRefusesAll)
{
    check(InputDocument()
              .stanza("WinRegMon://good", {{"hive", "HKLM\\\\.*"}})
              .stanza("WinRegMon://z", {{"hive", "HKLM\\\\(.*"}})
              .text(),
          inConfiguration("Regex: "));
}

TEST_F(RefusedInputTest, SurvivesBytesThatAreNoDocument)
{
    std::string binary;
    for (int i = 0; i < 100'000; ++i) {
        binary += static_cast<char>(i * i / 7);
    }
    check(binary, "");
}

TEST_F(RefusedInputTest, SaysThatThereIsNothingToReadFrom)
{
    RunOptions options;
    options.withInput = false;
    check("", inConfiguration("Error reading XML configuration input from stdin: "), options);
}

/// Input that the monitor makes something of, though it is odd.
class OddInputTest : public MonitorTest
{
protected:
    /// Whether a set value of the default key comes out under the stanza and index.
    void expectMonitoring(const Str &document, const Str &stanza)
    {
        const testbed::RecordFields record = {.pid = kUnknownPid, .dataType = 0};
        push({{record, {}}});
        MonitorRun run(document);
        EXPECT_TRUE(run.waitForEvents(1)) << run.log().c_str();
        EXPECT_EQ(run.stop(), 0u);
        EXPECT_EQ(run.output(), expectedStream({{.stanza = stanza, .body = bodyOf(record).text()}}));
        driver.reset();
    }
};

TEST_F(OddInputTest, UsesWhatWasWrittenBeforeTheEnd)
{
    expectMonitoring("<input><configuration><stanza name='WINREGMON:cut'><param name='disabled'>1", "cut");
    expectMonitoring("<input><configuration><stanza name=winregmon:bare/></configuration", "bare");
}

TEST_F(OddInputTest, LosesATokenThatIsTooLongAndGoesOn)
{
    const Str longName = Str(std::string(60'000, 'n').c_str());
    expectMonitoring(
        InputDocument().stanza("WinRegMon://on", {{longName, "1"}, {"type", "set"}, {"x", longName}}).text(),
        "on");
}

TEST_F(OddInputTest, TheOptionsSetTheIndexAndTheSense)
{
    const testbed::RecordFields record = {.pid = kUnknownPid, .dataType = 0};
    const testbed::RecordFields excluded = {
        .pid = kUnknownPid, .dataType = 0, .name = u"\\REGISTRY\\MACHINE\\Excluded"};
    const InputDocument document =
        InputDocument().stanza("WinRegMon://x", {{"hive", "HKLM\\\\Excluded"}, {"type", "set"}});
    check(document,
          {{excluded, {}}, {record, ExpectedEvent{.stanza = "", .index = "", .body = bodyOf(record).text()}}},
          {.arguments = "-inclusive 0"});
    driver.reset();
    check(document,
          {{record, {}},
           {excluded, ExpectedEvent{.stanza = "x", .index = "other", .body = bodyOf(excluded).text()}}},
          {.arguments = "--path-driver C:\\x -index other -inclusive 00"});
}

} // namespace

} // namespace velmox::e2e
