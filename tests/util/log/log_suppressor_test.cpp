#include "util/log/log_suppressor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::ElementsAre;

Timeval theTime;

class LogSuppressorTest : public testing::Test
{
protected:
    LogSuppressorTest() { at(0); }

    void at(std::uint64_t seconds, std::uint64_t ticks = 0)
    {
        theTime = Timeval(Timeval::kUnixEpoch + (1'000'000 + seconds) * Timeval::kTicksPerSecond + ticks);
    }
    void pass(const char *format, const char *text, LogLevel level = LogLevel::Info)
    {
        suppressor.pass(
            format, level, [&] { return Str(text); },
            [&](LogLevel entryLevel, const Str &message) {
                written.push_back(std::string(logLevelName(entryLevel)) + " " + message.c_str());
            });
    }
    static std::string tail(const char *count)
    {
        const Timeval first(Timeval::kUnixEpoch + 1'000'001 * Timeval::kTicksPerSecond);
        return std::string("\r\n\t\t\t\t") + count +
               " similar messages suppressed.  First occurred at: " + first.toStr().c_str();
    }

    LogSuppressor suppressor{10, 2, [] { return theTime; }};
    std::vector<std::string> written;
};

TEST_F(LogSuppressorTest, HoldsBackAboveTheThresholdAndReleasesByTheSameFormat)
{
    pass("f", "1", LogLevel::Warn);
    pass("f", "2", LogLevel::Error);
    at(1);
    pass("f", "3");
    at(5);
    pass("f", "4");
    at(11); // exactly the window: not yet more than it
    pass("f", "5");
    EXPECT_THAT(written, ElementsAre("WARN 1", "WARN 2"));
    at(11, 1);
    pass("f", "6");
    EXPECT_EQ(written.size(), 3u);
    EXPECT_EQ(written.back(), "WARN 6" + tail("4"));
    // The format is as good as new, and so is its level.
    pass("f", "7", LogLevel::Error);
    EXPECT_EQ(written.back(), "ERROR 7");
}

TEST_F(LogSuppressorTest, AnyOtherFormatReleasesInTheOrderOfFormats)
{
    for (const char *format : {"b", "d"}) {
        at(1);
        for (const char *text : {"first", "second", "third"}) {
            pass(format, text);
        }
    }
    written.clear();
    at(12);
    pass("c", "other");
    EXPECT_THAT(written, ElementsAre("INFO first" + tail("1"), "INFO other", "INFO first" + tail("1")));
    written.clear();
    at(30);
    pass("c", "again");
    EXPECT_THAT(written, ElementsAre("INFO again"));
}

TEST_F(LogSuppressorTest, FailedWriteIsNotMadeUpFor)
{
    for (const char *text : {"1", "2", "3"}) {
        pass("f", text);
    }
    at(12);
    const auto make = [] { return Str("4"); };
    EXPECT_THROW(suppressor.pass("f", LogLevel::Info, make, [](LogLevel, const Str &) { throw 0; }), int);
    pass("other", "5");
    pass("f", "6"); // counted from the start again
    EXPECT_THAT(written, ElementsAre("INFO 1", "INFO 2", "INFO 5", "INFO 6"));
}

TEST_F(LogSuppressorTest, ClockThatGoesBackMovesTheFirstMoment)
{
    pass("f", "1");
    pass("f", "2");
    at(20);
    pass("f", "3");
    at(1);
    pass("f", "4");
    at(12);
    pass("f", "5");
    EXPECT_EQ(written.back(), "INFO 5" + tail("3"));
}

} // namespace
} // namespace velmox
