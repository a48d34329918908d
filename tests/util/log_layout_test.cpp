#include "util/log_layout.h"
#include "util/log_message.h"

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
    const struct
    {
        const char *pattern;
        const char *expected;
    } cases[] = {
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
    for (const auto &each : cases) {
        EXPECT_EQ(render(each.pattern, "msg", sample()), each.expected) << each.pattern;
    }
}

TEST(LogLayout, NamesLevelsAndRefusesOthers)
{
    LogRecord record;
    record.level = static_cast<LogLevel>(9);
    EXPECT_EQ(render("%p", "", record), "???");
    record.level = static_cast<LogLevel>(-1);
    EXPECT_EQ(render("%p", "", record), "???");
    record.level = LogLevel::Emerg;
    EXPECT_EQ(render("%p", "", record), "EMERG");
    EXPECT_EQ(logLevelNamed("NOTICE"), LogLevel::Notice);
    EXPECT_FALSE(logLevelNamed("warn"));
}

TEST(LogLayout, DatesFallBackOnTheIsoForm)
{
    const LogRecord record = sample();
    const Str iso = render("%d", "", record);
    EXPECT_EQ(iso.size(), 23u) << iso.c_str();
    EXPECT_TRUE(iso.endsWith(":01,500")) << iso.c_str();
    for (const char *same : {"%d{}", "%d{ISO8601}", "%d{%}", "%d{%5c}"}) {
        EXPECT_EQ(render(same, "", record), iso) << same;
    }
    EXPECT_EQ(render("%d{ABSOLUTE}", "", record), iso.substr(11));
    EXPECT_EQ(render("%d{DATE}", "", record).size(), 24u);
    EXPECT_EQ(render("%d{%Y}", "", record), iso.substr(0, 4));
    EXPECT_EQ(render("%d{absolute}", "", record), "absolute");
}

TEST(LogLayout, CompressesLongMessagesAndThreadNames)
{
    const Str longest(16384, 'x');
    const Str tooLong(16385, 'x');
    LogRecord record;
    EXPECT_EQ(render("%m", longest), longest);
    EXPECT_EQ(render("%m", tooLong).size(), 100u);
    record.truncatesLongMessages = false;
    EXPECT_EQ(render("%m", tooLong, record), tooLong);

    const Str text(200, 'y');
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
    const Str withTail = compressed(1000, 100);
    EXPECT_EQ(withTail,
              Str::concat(text.substr(0, 56), " ...{skipping 928 bytes}... ").append(text.substr(984, 16)));
    EXPECT_EQ(compressed(1000, 59), Str::concat(text.substr(0, 35), " ...{skipping 969 bytes}"));

    // Near a power of ten one more byte left out may make the marker longer, which leaves out another one.
    for (std::size_t limit = kMinimumCompressedLength; limit < 130; ++limit) {
        for (std::size_t length = limit + 1; length <= text.size(); ++length) {
            const Str out = compressed(length, limit);
            ASSERT_EQ(out.size(), limit) << length;
            const std::size_t at = out.find("{skipping ") + 10;
            const auto skipped =
                static_cast<std::size_t>(out.substr(at, out.find(" bytes") - at).toInt64(-1));
            const bool hasTail = out.contains("}... ");
            const std::size_t markerLength = 25 + Str::fromFormat("%zu", skipped).size();
            ASSERT_EQ(skipped, length - (limit - markerLength)) << length << " to " << limit;
            ASSERT_EQ(hasTail, limit - markerLength >= 32) << length << " to " << limit;
        }
    }
}

TEST(LogMessage, ShowsLineEnds)
{
    EXPECT_EQ(withVisibleLineEnds("a\r\nb\n"), "a\\r\\nb\\n");
}

} // namespace
} // namespace velmox
