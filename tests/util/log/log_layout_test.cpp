#include "util/log/log_layout.h"
#include "util/log/log_message.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

Str render(const char *pattern, const Str &message, LogRecord record = {})
{
    Str out;
    LogLayout(pattern).render(record, message, out);
    return out;
}

LogRecord sample()
{
    LogRecord record;
    record.startTime = Timeval::kUnixEpoch;
    record.time = Timeval::kUnixEpoch + 15'000'001;
    record.loggerName = "Comp";
    record.level = LogLevel::Warn;
    record.threadName = [] { return Str("Worker"); };
    return record;
}

TEST(LogLayout, RendersConversionsAndWidths)
{
    const std::pair<const char *, const char *> cases[] = {
        {"%m%n", "msg\r\n"},
        {"%R %p %c %m%n", "1 WARN Comp msg\r\n"},
        {"%-8p: %m", "WARN    : msg"},
        {"%r", "1501"}, // 1500.0001 ms, rounded up
        {"%6r|%06r|%-6r|", "  1501|001501|1501  |"},
        {"%.2p|%6.2p|%-6.2p|%06.2p", "WA|    WA|WA    |0000WA"},
        {"%3p", "WARN"},
        {"%t %%m 100%%", "Worker %m 100%"},
        {"a%qb%5.3y{arg}c", "abc"},
        {"%c{arg}x%m{open", "Compxmsg"},
        {"end%", "end"},
        {"end%-5.", "end"},
        {"%5n|", "   \r\n|"},
        {"", ""},
    };
    for (const auto &[pattern, expected] : cases) {
        EXPECT_EQ(render(pattern, "msg", sample()), expected) << pattern;
    }
}

TEST(LogLayout, NamesLevels)
{
    LogRecord record;
    const std::pair<int, const char *> levels[] = {
        {9, "???"}, {-1, "???"}, {0, "DEBUG"}, {7, "FATAL"}, {8, "EMERG"}};
    for (const auto &[level, name] : levels) {
        record.level = static_cast<LogLevel>(level);
        EXPECT_EQ(render("%p", "", record), name);
    }
    EXPECT_EQ(logLevelNamed("NOTICE"), LogLevel::Notice);
    EXPECT_FALSE(logLevelNamed("warn"));
}

TEST(LogLayout, WritesDatesInTheIsoFormUnlessToldBetter)
{
    const Str iso = render("%d", "", sample());
    EXPECT_EQ(iso.size(), 23u) << iso.c_str();
    EXPECT_TRUE(iso.endsWith(":01,500")) << iso.c_str();
    const std::pair<const char *, Str> cases[] = {
        {"%d{}", iso},
        {"%d{ISO8601}", iso},
        {"%d{%}", iso},
        {"%d{%5c}", iso},
        {"%d{ABSOLUTE}", iso.substr(11)},
        {"%d{DATE}", Str::concat(render("%d{%d %b %Y }", "", sample()), iso.substr(11))},
        {"%d{%Y}", iso.substr(0, 4)},
        {"%d{absolute}", "absolute"},
    };
    for (const auto &[pattern, date] : cases) {
        EXPECT_EQ(render(pattern, "", sample()), date) << pattern;
    }
}

TEST(LogLayout, CompressesLongMessagesAndThreadNames)
{
    const Str longest(16384, 'x');
    const Str tooLong(16385, 'x');
    const Str text(200, 'y');
    LogRecord record;
    EXPECT_EQ(render("%m", longest), longest);
    EXPECT_EQ(render("%m", tooLong).size(), 100u);
    record.truncatesLongMessages = false;
    EXPECT_EQ(render("%m", tooLong, record), tooLong);
    EXPECT_EQ(render("%.44m", text), Str(44, 'y'));
    EXPECT_TRUE(render("%.45m", text).contains("skipping"));
    EXPECT_EQ(render("%.45m", text).size(), 45u);
    EXPECT_EQ(render("%.200m", text), text);
    record.threadName = [] { return Str(101, 't'); };
    EXPECT_TRUE(render("%t", "", record).contains("skipping"));
    EXPECT_EQ(render("%.101t", "", record), Str(101, 't'));
    EXPECT_EQ(render("%.60t", "", record), Str(60, 't'));
}

TEST(LogMessage, CompressionFillsTheLimitAroundASettledMarker)
{
    Str text;
    for (int index = 0; index < 2000; ++index) {
        text.push_back(static_cast<char>('a' + index % 26));
    }
    const auto compressed = [&](std::size_t length, std::size_t limit) {
        Str out;
        appendCompressed(StrSegment(text).substr(0, length), limit, out);
        return out;
    };
    EXPECT_EQ(compressed(1000, 100),
              Str::concat(text.substr(0, 56), " ...{skipping 928 bytes}... ").append(text.substr(984, 16)));
    EXPECT_EQ(compressed(1000, 59), Str::concat(text.substr(0, 35), " ...{skipping 969 bytes}"));
    // Near a power of ten one more byte left out may make the marker longer, which leaves out another one.
    for (std::size_t limit = kMinimumCompressedLength; limit < 130; ++limit) {
        for (std::size_t length = limit + 1; length <= text.size(); ++length) {
            const Str out = compressed(length, limit);
            ASSERT_EQ(out.size(), limit) << length;
            const auto skipped =
                static_cast<std::size_t>(std::atoi(out.c_str() + out.find("{skipping ") + 10));
            const bool hasTail = out.contains("}... ");
            const std::size_t markerLength =
                25 + Str::fromFormat("%u", static_cast<unsigned>(skipped)).size();
            ASSERT_EQ(skipped, length - (limit - markerLength)) << length << " to " << limit;
            ASSERT_EQ(hasTail, limit - markerLength >= 32) << length << " to " << limit;
        }
    }
}

} // namespace
} // namespace velmox
