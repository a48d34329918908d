#include "tests/e2e/monitor_test.h"

namespace velmox::e2e {

namespace {

/// What the server writes that leaves the monitor nothing to do: it ends by itself, before it looks for the
/// driver. The message stands in the log at ERROR.
void expectRefused(std::string_view document, const Str &message, const RunOptions &options = {})
{
    MonitorRun run(document, options);
    EXPECT_EQ(run.waitForEnd(), 0u);
    EXPECT_EQ(run.output(), "");
    EXPECT_EQ(run.errors(), "");
    expectLogged(run.log(), message);
    EXPECT_EQ(run.log().contains(" ERROR "), !message.empty()) << run.log().c_str();
}

TEST(RefusedInputTest, EndsQuietlyWithoutAnEnabledStanza)
{
    expectRefused(InputDocument()
                      .stanza("default", {{"hive", ".*"}})
                      .stanza("WinRegMon://b", {{"disabled", "true"}})
                      .text(),
                  "");
    expectRefused(
        InputDocument().stanza("regmon:foo", {}).text(),
        "Found a stanza named 'regmon:foo' without the WinRegMon prefix, this will not be processed.");
}

TEST(RefusedInputTest, EndsQuietlyWhenItCannotBeReadOrUnderstood)
{
    const auto inConfiguration = [](const char *text) {
        return Str::fromFormat("WinRegistryMonitor::configure: Failed to get configuration settings: '%s",
                               text);
    };
    expectRefused("<input><foo/></input>", inConfiguration("Unexpected entity \"foo\" found under path "));
    expectRefused(InputDocument()
                      .stanza("WinRegMon://good", {{"hive", "HKLM\\\\.*"}})
                      .stanza("WinRegMon://z", {{"hive", "HKLM\\\\(.*"}})
                      .text(),
                  inConfiguration("Regex: "));
    expectRefused("", inConfiguration("Error reading XML configuration input from stdin: "),
                  {.streams = Streams::NoInput});
}

/// Input that the monitor makes something of, though it is odd.
class OddInputTest : public MonitorTest
{
};

TEST_F(OddInputTest, IsUsedAsFarAsItGoes)
{
    const Str longName = Str(std::string(60'000, 'n').c_str());
    const struct
    {
        Str document;
        const char *stanza;
    } rows[] = {
        {"<input><configuration><stanza name='WINREGMON:cut'><param name='disabled'>1", "cut"},
        {"<input><configuration><stanza name=winregmon:bare/></configuration", "bare"},
        // A token that is too long is lost.
        {InputDocument().stanza("WinRegMon://on", {{longName, "1"}, {"type", "set"}, {"x", longName}}).text(),
         "on"},
    };
    const testbed::RecordFields record = {.pid = kUnknownPid, .dataType = 0};
    for (const auto &row : rows) {
        driver.reset();
        push({{record, {}}});
        MonitorRun run(row.document);
        EXPECT_TRUE(run.waitForEvents(1)) << run.log().c_str();
        EXPECT_EQ(run.stop(), 0u);
        EXPECT_EQ(run.output(), expectedStream({{.stanza = row.stanza, .body = bodyOf(record).text()}}));
    }
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
