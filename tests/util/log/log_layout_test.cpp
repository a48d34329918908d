#include "util/log/log_layout.h"

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
        {"%t %%m 100%%", "Worker %m 100%"},
        {"a%qb%5.3y{arg}c", "abc"},
        {"%c{arg}x%m{open", "Compxmsg"},
        {"%5n|", "   \r\n|"},
    };
    for (const auto &[pattern, expected] : cases) {
        EXPECT_EQ(render(pattern, "msg", sample()), expected) << pattern;
    }
}

TEST(LogLayout, NamesLevels)
{
    LogRecord record;
    Str names;
    for (int level = -1; level <= 9; ++level) {
        record.level = static_cast<LogLevel>(level);
        names << render("%p ", "", record);
    }
    EXPECT_EQ(names, "??? DEBUG INFO NOTICE WARN ERROR CRIT ALERT FATAL EMERG ??? ");
    EXPECT_EQ(logLevelNamed("NOTICE"), LogLevel::Notice);
    EXPECT_FALSE(logLevelNamed("warn"));
}

TEST(LogLayout, WritesDatesInTheIsoFormUnlessToldBetter)
{
    const Str iso = render("%d", "", sample());
    EXPECT_EQ(iso.size(), 23u) << iso.c_str();
    EXPECT_TRUE(iso.endsWith(":01,500")) << iso.c_str();
    const std::pair<const char *, Str> cases[] = {
        {"%d{ISO8601}", iso},
        {"%d{%5c}", iso},
        {"%d{ABSOLUTE}", iso.substr(11)},
        {"%d{DATE}", Str::concat(render("%d{%d %b %Y }", "", sample()), iso.substr(11))},
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
    record.threadName = [] { return Str(101, 't'); };
    EXPECT_EQ(render("%m", longest), longest);
    EXPECT_EQ(render("%m", tooLong).size(), 100u);
    EXPECT_EQ(render("%.44m", text), Str(44, 'y'));
    EXPECT_TRUE(render("%.45m", text).contains("skipping"));
    EXPECT_EQ(render("%.200m", text), text);
    EXPECT_TRUE(render("%t", "", record).contains("skipping"));
    record.truncatesLongMessages = false;
    EXPECT_EQ(render("%m", tooLong, record), tooLong);
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
            const int skipped = std::atoi(out.c_str() + out.find("{skipping ") + 10);
            const std::size_t room = limit - 25 - Str::fromFormat("%d", skipped).size();
            ASSERT_EQ(skipped, static_cast<int>(length - room)) << length << " to " << limit;
        }
    }
}

} // namespace
} // namespace velmox
