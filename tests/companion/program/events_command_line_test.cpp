#include "companion/program/events_command_line.h"

#include <stdexcept>

namespace velmox {
namespace {

TEST(EventsCommandLine, ReadsCommandsOptionsAndFiles)
{
    EXPECT_EQ(readEventsCommandLine({}, true).command, EventsCommand::Table);
    EXPECT_EQ(readEventsCommandLine({"file"}, false).command, EventsCommand::Json);
    EXPECT_THAT(readEventsCommandLine({"json"}, true).files, ::testing::ElementsAre("-"));
    const EventsCommandLine report =
        readEventsCommandLine({"report", "--where=event.kind=x", "out", "--", "-in"}, true);
    EXPECT_EQ(report.output, "out");
    EXPECT_THAT(report.files, ::testing::ElementsAre("-in"));
    EXPECT_TRUE(readEventsCommandLine({"diff", "a", "--json", "b"}, true).isJson);
    EXPECT_EQ(readEventsCommandLine({"--where", "event.kind=x", "--json", "diff", "a", "b"}, true).command,
              EventsCommand::Diff);
    EXPECT_THAT(readEventsCommandLine({"--", "table"}, true).files, ::testing::ElementsAre("table"));
    EXPECT_THAT(readEventsCommandLine({"a", "table"}, true).files, ::testing::ElementsAre("a", "table"));
    const std::vector<std::vector<std::string>> wrongs = {{"diff", "a"},
                                                          {"report"},
                                                          {"--json"},
                                                          {"--where"},
                                                          {"--where", "x"},
                                                          {"table", "-x"},
                                                          {"--wherever=event.kind=x"}};
    for (const std::vector<std::string> &wrong : wrongs) {
        EXPECT_THROW(readEventsCommandLine(wrong, true), std::invalid_argument) << wrong.front();
    }
}

} // namespace
} // namespace velmox
