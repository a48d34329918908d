#include "tests/util/time/scoped_zone.h"
#include "util/time/time_formatter.h"

namespace velmox {
namespace {

/// A zone whose offset the test chooses.
class FixedZone : public ZoneSource
{
public:
    explicit FixedZone(std::int32_t offset) : offset_(offset) {}

    std::optional<std::int64_t> unixSeconds(const StructTm &tm) const override
    {
        return tm.asUtcSeconds() - offset_;
    }
    std::size_t zoneName(const StructTm &, char *buffer, std::size_t) const override
    {
        std::memcpy(buffer, "Fix", 3);
        return 3;
    }
    std::int32_t offsetSeconds(const StructTm &) const override { return offset_; }

private:
    std::int32_t offset_;
};

StructTm moment(std::int64_t unixSeconds)
{
    StructTm tm;
    tm.setUtcSeconds(unixSeconds);
    return tm;
}

Str formatAt(const char *fmt, const StructTm &tm, std::uint32_t ticks = 0, std::int32_t offset = 0)
{
    TimeFormatter formatter;
    EXPECT_TRUE(formatter.compile(fmt)) << fmt;
    Str out;
    formatter.format(out, tm, ticks, FixedZone(offset));
    return out;
}

constexpr std::int64_t kSunday = 1'709'469'296;   // Sunday 3 March 2024, 12:34:56
constexpr std::int64_t kMidnight = 1'730'678'400; // Monday 4 November 2024, 00:00:00

TEST(TimeFormatter, WritesFieldsAndCompositesByFlagsAndWidths)
{
    const std::pair<const char *, const char *> cases[] = {
        {"", ""},
        {"plain 100%% text", "plain 100% text"},
        {"%Y %o %C %y %G %g %V %U %W", "2024 2024 20 24 2024 24 09 09 09"},
        {"%m %d %e %j %H %k %I %M %S", "03 03  3 063 12 12 12 34 56"},
        {"%u %w %a %A %b %h %B", "7 0 Sun Sunday Mar Mar March"},
        {"%p %P %s %Z[%n|%t]", "PM pm 1709469296 Fix[\n|\t]"},
        {"%Q %f %q %N", "012 012345 012345 012345600"},
        {"%1N %7N %8Q %03Q", "0 0123456 01234560 012"},
        {"%EY %EC %Ey %Od %OH", "2024 20 24 03 12"},
        {"%D|%x|%F|%R", "03/03/24|03/03/24|2024-03-03|12:34"},
        {"%T|%X|%EX|%r|%v", "12:34:56|12:34:56|12:34:56|12:34:56 PM| 3-Mar-2024"},
        {"%c|%Ec|%^c", "Sun Mar  3 12:34:56 2024|Sun Mar  3 12:34:56 2024|SUN MAR  3 12:34:56 2024"},
        {"%+", "Sun Mar  3 12:34:56 Fix 2024"},
        {"%#c|%#x", "Sunday, March 3, 2024, 12:34:56|Sunday, March 3, 2024"},
        {"%-d %_d %0e %-m|%5d %_5d %-5d %05e %^05d", "3  3 03 3|00003     3 3 00003 00003"},
        {"%^a %^^a %#a %^B %#p %^P %#Z", "SUN SUN sUN MARCH pm PM fIX"},
        {"%2a %10A %-10A %_4a", "Su     Sunday Sunday  Sun"},
        {"%6Y %_6Y %_12s %012s", "002024   2024   1709469296 001709469296"},
        // Without flags and width, `%l` is the hour or the milliseconds.
        {"%H:%M:%S,%l", "12:34:56,012"},
        {"%H:%M:%S.%l", "12:34:56.012"},
        {"%H:%M:%S%l", "12:34:56012"},
        {"%H:%M:%S;%l", "12:34:56;12"},
        {"%H:%M:%S, %l", "12:34:56, 12"},
        {"%l:%M %p", "12:34 PM"},
        {"%S,%l", "56,012"},
        {"%M:%S,%l", "34:56,12"},
        {"%T,%l", "12:34:56,012"},
        {"%S,%_l %S,%3l %-l", "56,12 56, 12 12"},
        {",%l", ",12"}};
    for (const auto &[fmt, expected] : cases) {
        EXPECT_EQ(formatAt(fmt, moment(kSunday), 123'456), expected) << fmt;
    }
    EXPECT_EQ(formatAt("%s|%_6s|%06s", moment(-42)), "-42|   -42|-00042");
    EXPECT_EQ(formatAt("%I %l %k %p", moment(kMidnight)), "12 12  0 AM");
    EXPECT_EQ(formatAt("%I %l %k %p", moment(kMidnight + 13 * 3600)), "01  1 13 PM");
}

TEST(TimeFormatter, RefusesWhatItDoesNotKnow)
{
    for (const char *fmt : {"%",    "abc%", "%5c",  "%-c", "%05a", "%J",  "%i",      "%^#a", "%#^a", "%5^a",
                            "%-_d", "%00d", "%EEY", "%Ed", "%OY",  "%Oc", "%ED",     "%E:z", "%:d",  "%_Q",
                            "%-N",  "%El",  "%Ol",  "%5",  "%E",   "%#",  "%99999d", "%5%",  "%5D",  "%_T"}) {
        TimeFormatter formatter;
        ASSERT_TRUE(formatter.compile("%Y"));
        EXPECT_FALSE(formatter.compile(fmt)) << fmt;
        EXPECT_EQ(formatter.atomCount(), 0u) << fmt;
    }
}

TEST(TimeFormatter, WritesOffsets)
{
    const std::tuple<const char *, std::int32_t, const char *> cases[] = {
        {"%z %Ez %:z %::z %:::z", 3600, "+0100 +060 +01:00 +01:00:00 +01"},
        {"%z %Ez %:z %::z %:::z", -12'600, "-0330 -210 -03:30 -03:30:00 -03:30"},
        {"%z %::z %:::z", 5 * 3600 + 7, "+0500 +05:00:07 +05:00:07"},
        {"%z %-z %_z %8z", 0, "+0000 +0    +0 +0000000"},
        {"[%z%Ez%:z%:::z]", ZoneSource::kUnknownOffset, "[]"}};
    for (const auto &[fmt, offset, expected] : cases) {
        EXPECT_EQ(formatAt(fmt, moment(kSunday), 0, offset), expected) << fmt;
    }
}

TEST(TimeFormatter, NumbersWeeks)
{
    const std::pair<std::int64_t, const char *> cases[] = {
        {1'104'537'600, "2004-53-6 00 00"}, // 1 January 2005
        {1'167'609'600, "2007-01-1 00 01"}, // 1 January 2007
        {1'230'595'200, "2009-01-2 52 52"}, // 30 December 2008
        {1'262'476'800, "2009-53-7 01 00"}, // 3 January 2010
        {1'609'372'800, "2020-53-4 52 52"}, // 31 December 2020
    };
    for (const auto &[unixSeconds, expected] : cases) {
        EXPECT_EQ(formatAt("%G-%V-%u %U %W", moment(unixSeconds)), expected);
    }
}

TEST(TimeFormatter, NeverFailsToRun)
{
    StructTm tm;
    tm.weekDay = 7;
    tm.month = -1;
    tm.year = -1905;
    EXPECT_EQ(formatAt("%a %A %b %B %2a %Y", tm), "??? ??? ??? ??? ??? -005");
}

Str formatLocally(const char *fmt, std::int64_t unixSeconds)
{
    TimeFormatter formatter;
    Timeval stamp;
    LocalStructTmHires tm;
    Str out;
    EXPECT_TRUE(formatter.compile(fmt) && stamp.setUnixSeconds(unixSeconds, 5'000'000));
    stamp.toLocalHires(tm);
    formatter.format(out, tm, tm.ticks);
    return out;
}

TEST(TimeFormatter, AsksTheLocalZone)
{
    const test::ScopedZone zone("EST5");
    EXPECT_EQ(formatLocally("%F %T.%Q %z %s", 1'705'322'096), "2024-01-15 07:34:56.500 -0500 1705322096");
#ifndef _WIN32
    const test::ScopedZone daylightZone("EST5EDT");
    EXPECT_EQ(formatLocally("%T %z %Z %s", 1'705'322'096), "07:34:56 -0500 EST 1705322096");
    EXPECT_EQ(formatLocally("%T %z %Z %s", 1'720'960'496), "08:34:56 -0400 EDT 1720960496");
#endif
}

} // namespace
} // namespace velmox
