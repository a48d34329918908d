#include "util/log/log_suppressor.h"

namespace velmox {
namespace {

Timeval theTime;

void at(std::uint64_t seconds, std::uint64_t ticks = 0)
{
    theTime = Timeval(Timeval::kUnixEpoch + (1'000'000 + seconds) * Timeval::kTicksPerSecond + ticks);
}

/// What a suppressor writes that lets two messages of a format pass, and holds back for ten seconds.
struct Suppressor
{
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
    at(0);
    same.pass("f", {"1"}, LogLevel::Warn);
    same.pass("f", {"2"}, LogLevel::Error);
    for (const unsigned seconds : {5, 1, 11}) { // a clock that goes back moves the first moment
        at(seconds);
        same.pass("f", {"held back"}); // also at exactly the window
    }
    EXPECT_EQ(same.written, "WARN 1\nWARN 2\n");
    at(11, 1);
    same.pass("f", {"6"});
    same.pass("f", {"7"}, LogLevel::Error); // the format is as good as new, and so is its level
    EXPECT_EQ(same.written, Str("WARN 1\nWARN 2\n") << told("WARN 6", "4") << "ERROR 7\n");

    Suppressor others;
    at(1);
    others.pass("b", {"first", "second", "third"});
    others.pass("d", {"first", "second", "third"});
    others.written = "";
    at(12);
    others.pass("c", {"other"});
    EXPECT_EQ(others.written, told("INFO first", "1") << "INFO other\n" << told("INFO first", "1"));
}

} // namespace
} // namespace velmox
