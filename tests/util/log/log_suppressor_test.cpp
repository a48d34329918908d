#include "util/log/log_suppressor.h"

namespace velmox {
namespace {

Timeval theTime;

/// What a suppressor writes that lets two messages of a format pass, and holds back for ten seconds.
struct Suppressor
{
    Suppressor() { at(0); }

    void at(std::uint64_t seconds, std::uint64_t ticks = 0)
    {
        theTime = Timeval(Timeval::kUnixEpoch + (1'000'000 + seconds) * Timeval::kTicksPerSecond + ticks);
    }
    void pass(const char *format, std::initializer_list<const char *> texts, LogLevel level = LogLevel::Info)
    {
        for (const char *text : texts) {
            suppressor.pass(
                format, level, [&] { return Str(text); },
                [&](LogLevel entryLevel, const Str &message) {
                    written << logLevelName(entryLevel) << " " << message << "\n";
                });
        }
    }
    /// What was written since it was last asked for.
    Str news() { return std::exchange(written, Str()); }

    LogSuppressor suppressor{10, 2, [] { return theTime; }};
    Str written;
};

Str told(const char *line, const char *count)
{
    const Timeval first(Timeval::kUnixEpoch + 1'000'001 * Timeval::kTicksPerSecond);
    return Str::fromFormat("%s\r\n\t\t\t\t%s similar messages suppressed.  First occurred at: %s\n", line,
                           count, first.toStr().c_str());
}

TEST(LogSuppressor, HoldsBackAboveTheThresholdAndTellsTheNumberBehindTheWindow)
{
    Suppressor same;
    same.pass("f", {"1"}, LogLevel::Warn);
    same.pass("f", {"2"}, LogLevel::Error);
    for (const unsigned seconds : {5, 1}) { // a clock that goes back moves the first moment
        same.at(seconds);
        same.pass("f", {"held back"});
    }
    same.at(11); // exactly the window: not yet more than it
    same.pass("f", {"held back"});
    EXPECT_EQ(same.news(), "WARN 1\nWARN 2\n");
    same.at(11, 1);
    same.pass("f", {"6"});
    same.pass("f", {"7"}, LogLevel::Error); // the format is as good as new, and so is its level
    EXPECT_EQ(same.news(), told("WARN 6", "4").append("ERROR 7\n"));

    Suppressor others;
    others.at(1);
    others.pass("b", {"first", "second", "third"});
    others.pass("d", {"first", "second", "third"});
    others.news();
    others.at(12);
    others.pass("c", {"other"});
    EXPECT_EQ(others.news(),
              Str::concat(told("INFO first", "1"), "INFO other\n").append(told("INFO first", "1")));

    // What a failed write should have told is not made up for, and counting begins anew.
    Suppressor failing;
    failing.pass("f", {"1", "2", "3"});
    failing.news();
    failing.at(12);
    const auto make = [] { return Str("4"); };
    EXPECT_THROW(failing.suppressor.pass("f", LogLevel::Info, make, [](LogLevel, const Str &) { throw 0; }),
                 int);
    failing.pass("other", {"5"});
    failing.pass("f", {"6"});
    EXPECT_EQ(failing.news(), "INFO 5\nINFO 6\n");
}

} // namespace
} // namespace velmox
