#include "tests/util/time/scoped_zone.h"
#include "util/time/struct_tm.h"
#include "util/time/timeval.h"
#include "util/time/zone_source.h"

namespace velmox {
namespace {

using test::ScopedZone;

constexpr std::int64_t kWinter = 1'705'322'096; // Monday 15 January 2024, 12:34:56 UTC
constexpr std::int64_t kSummer = 1'720'960'496; // Sunday 14 July 2024, 12:34:56 UTC

Timeval at(std::int64_t unixSeconds, std::uint32_t ticks = 0)
{
    Timeval stamp;
    EXPECT_TRUE(stamp.setUnixSeconds(unixSeconds, ticks));
    return stamp;
}

/// A zone one hour ahead of UTC that went two hours ahead between two moments; or one that knows nothing.
class TwoOffsetZone : public ZoneSource
{
public:
    static constexpr std::int64_t kForward = 1'711'846'800; // 31 March 2024, 01:00 UTC
    static constexpr std::int64_t kBack = 1'729'990'800;    // 27 October 2024, 01:00 UTC

    explicit TwoOffsetZone(bool isKnown = true) : isKnown_(isKnown) {}
    std::optional<std::int64_t> unixSeconds(const StructTm &tm) const override
    {
        return isKnown_ ? std::optional(tm.asUtcSeconds() - offsetSeconds(tm)) : std::nullopt;
    }
    std::size_t zoneName(const StructTm &, char *, std::size_t) const override { return 0; }
    std::int32_t offsetSeconds(const StructTm &tm) const override
    {
        const std::int64_t wall = tm.asUtcSeconds();
        const bool ambiguous = wall >= kBack + 3600 && wall < kBack + 7200;
        const bool summer = ambiguous ? tm.daylight > 0 : wall >= kForward + 7200 && wall < kBack + 7200;
        return !isKnown_ ? kUnknownOffset : summer ? 7200 : 3600;
    }

private:
    bool isKnown_;
};

void expectFields(const StructTm &tm, const char *expected)
{
    EXPECT_EQ(Str::fromFormat("%d-%02d-%02d %02d:%02d:%02d wday %d yday %d dst %d", tm.year + 1900,
                              tm.month + 1, tm.dayOfMonth, tm.hours, tm.minutes, tm.seconds, tm.weekDay,
                              tm.yearDay, tm.daylight),
              expected);
}

constexpr const char *kLatest = "9999-12-31 23:59:59 wday 5 yday 364 dst -1";
constexpr const char *kEarliest = "1900-01-01 00:00:00 wday 1 yday 0 dst -1";

TEST(Timeval, CountsAndMeasures)
{
    EXPECT_EQ(Timeval(Timeval::kUnixEpoch - 1).toUnixSeconds(), 0);
    EXPECT_EQ(Timeval(Timeval::kUnixEpoch + 19'999'999).toUnixSeconds(), 1);
    EXPECT_EQ(at(-1).ticks(), Timeval::kUnixEpoch - Timeval::kTicksPerSecond);
    EXPECT_EQ(Timeval::fromHalves(0x89ABCDEF, 0x01234567).ticks(), 0x0123456789ABCDEFu);
    Timeval stamp;
    EXPECT_FALSE(stamp.setUnixSeconds(-11'644'473'601));
    EXPECT_FALSE(stamp.setUnixSeconds(INT64_MAX) || stamp.setUnixSeconds(1'833'029'933'770));
    EXPECT_TRUE(stamp.setUnixSeconds(1'833'029'933'769));
    EXPECT_GT(Timeval::now().toUnixSeconds(), kSummer);
    EXPECT_EQ(Timeval(25'000'000).secondsSince(Timeval(0)), 2);
    EXPECT_EQ(Timeval(0).secondsSince(Timeval(25'000'000)), -2);
    EXPECT_EQ(Timeval(10'001).millisecondsSince(Timeval(0)), 2);
    Str text("t=");
    at(5, 1'234'567).toUnixStr(text, 0);
    for (const unsigned digits : {1u, 3u, 7u, 9u}) {
        at(5, 123'456).toUnixStr(text << ' ', digits);
    }
    EXPECT_EQ(text, "t=5 5.0 5.012 5.0123456 5.012345600");
}

TEST(Timeval, BreaksDownAndBackAndPrints)
{
    const ScopedZone zone("EST5");
    const std::pair<Timeval, const char *> cases[] = {{at(kWinter), "Mon Jan 15 07:34:56 2024"},
                                                      {at(1'709'647'200), "Tue Mar 05 09:00:00 2024"},
                                                      {Timeval(Timeval::kMin), "MIN_TIME"},
                                                      {Timeval(Timeval::kMax), "MAX_TIME"},
                                                      {at(32'535'244'800), "INVALID_TIME (32535244800)"}};
    for (const auto &[stamp, text] : cases) {
        EXPECT_EQ(stamp.toStr(), text);
    }
    GmtStructTm gmt;
    at(kSummer).toGmt(gmt);
    expectFields(gmt, "2024-07-14 12:34:56 wday 0 yday 195 dst 0");
    EXPECT_EQ(gmt.toUnixTime(), at(kSummer));
    LocalStructTmHires hires;
    at(kWinter, 9'876'543).toLocalHires(hires);
    expectFields(hires, "2024-01-15 07:34:56 wday 1 yday 14 dst 0");
    EXPECT_EQ(hires.toUnixTime(), at(kWinter, 9'876'543));
}

TEST(Timeval, BreaksDownInANamedZone)
{
    const TwoOffsetZone zone;
    for (const std::int64_t edge : {TwoOffsetZone::kForward, TwoOffsetZone::kBack}) {
        for (const std::int64_t shift : {-7201, -7200, -3601, -3600, -1, 0, 1, 3599, 3600, 7199, 7200}) {
            StructTmInTimezoneHires tm;
            at(edge + shift, 42).toZoneHires(zone, tm);
            EXPECT_EQ(tm.toUnixTime(), at(edge + shift, 42)) << edge << " " << shift;
        }
    }
    StructTmInTimezone tm;
    at(kSummer).toZone(zone, tm);
    EXPECT_EQ(tm.hours, 14);
    EXPECT_EQ(tm.toUnixTime(), at(kSummer));
}

TEST(Timeval, YieldsTheEndsOfTimeOnFailureAndSaysSo)
{
    const TwoOffsetZone unknown(false);
    for (const bool late : {true, false}) {
        const Timeval end(late ? Timeval::kMax : Timeval::kMin);
        const Timeval stamp = late ? end : at(-1, 5);
        LocalStructTm local;
        LocalStructTmHires localHires;
        StructTmInTimezoneHires zoned;
        const CapturedLog log;
        stamp.toLocal(local);
        stamp.toLocalHires(localHires);
        stamp.toZoneHires(unknown, zoned);
        for (const StructTm *tm : std::initializer_list<StructTm *>{&local, &localHires, &zoned}) {
            expectFields(*tm, late ? kLatest : kEarliest);
        }
        EXPECT_EQ(localHires.ticks, late ? 9'999'999u : 0);
        EXPECT_EQ(zoned.ticks, localHires.ticks);
        EXPECT_EQ(local.toUnixTime(), end);
        EXPECT_EQ(zoned.toUnixTime(), end);
        Str expected = "_localtime64_s(SECONDS) failed!\n_localtime64_s(SECONDS) failed!\n"
                       "StructTmInTimezoneHires::fromUnixTime(SECONDS) failed!\n"
                       "LocalStructTm::toUnixTime(FIELDS) failed!\n"
                       "StructTmInTimezoneHires::toUnixTime(FIELDS) failed!";
        expected.replaceAll("SECONDS", late ? "1833029933770" : "-1");
        expected.replaceAll("FIELDS", late ? "9999-12-31 23:59:59" : "1900-1-1 0:00:00");
        EXPECT_EQ(log.text(), logLines("WARN Timeval: ", expected));
    }
    GmtStructTm never;
    never.year = 1'000'000;
    EXPECT_EQ(logOf([&] { EXPECT_EQ(never.toUnixTime(), Timeval(Timeval::kMax)); }),
              "WARN Timeval: GmtStructTm::toUnixTime(1001900-1-1 0:00:00) failed!\n");
}

TEST(Timeval, AgreesWithTheCalendarOverCenturies)
{
    GmtStructTm last;
    at(-11'644'473'600).toGmt(last);
    expectFields(last, "1601-01-01 00:00:00 wday 1 yday 0 dst 0");
    for (std::int64_t seconds = -11'644'473'600 + 86'400; seconds < 20'000'000'000; seconds += 86'400) {
        GmtStructTm tm;
        at(seconds).toGmt(tm);
        ASSERT_EQ(tm.asUtcSeconds(), seconds);
        ASSERT_EQ(tm.weekDay, (last.weekDay + 1) % 7);
        ASSERT_EQ(tm.yearDay, tm.year == last.year ? last.yearDay + 1 : 0);
        last = tm;
    }
    at(951'782'400).toGmt(last);
    expectFields(last, "2000-02-29 00:00:00 wday 2 yday 59 dst 0");
}

// No installed program calls it.
TEST(Timeval, FormatsDurations)
{
    const std::pair<std::int64_t, const char *> cases[] = {{1, "1 microsecond"},
                                                           {3'001, "3.001 milliseconds"},
                                                           {99'500, " 99.5 milliseconds"},
                                                           {3'000'000, "3000.0 milliseconds"},
                                                           {8'000'000'000, "8000.0 seconds"},
                                                           {9'000'000'000, "2.500 hours"},
                                                           {-5'000, "-5.000 milliseconds"}};
    const Timeval from(Timeval::kUnixEpoch);
    for (const auto &[microseconds, expected] : cases) {
        const Timeval to(Timeval::kUnixEpoch + static_cast<std::uint64_t>(microseconds * 10));
        EXPECT_EQ(formatDuration(from, to), expected);
    }
}

} // namespace
} // namespace velmox
