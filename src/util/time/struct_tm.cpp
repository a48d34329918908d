#include "util/time/struct_tm.h"

#include "util/log/logger.h"
#include "util/text/platform.h"
#include "util/time/calendar.h"
#include "util/time/zone_source.h"

#include <optional>

namespace velmox {

namespace {

Logger logger("Timeval");

constexpr std::int32_t kYearOfUnixEpoch = 70;

constexpr StructTm kLatest = {.seconds = 59,
                              .minutes = 59,
                              .hours = 23,
                              .dayOfMonth = 31,
                              .month = 11,
                              .year = 8099,
                              .weekDay = 5,
                              .yearDay = 364,
                              .daylight = -1};
constexpr StructTm kEarliest = {.dayOfMonth = 1, .weekDay = 1, .daylight = -1};

void logFailedBreakDown(const char *operation, std::int64_t unixSeconds)
{
    logger.warn("%s(%lld) failed!", operation, static_cast<long long>(unixSeconds));
}

/// Yields the out-of-range fields, and the ticks of the second that go with them.
std::uint32_t setOutOfRange(std::int64_t unixSeconds, StructTm &out)
{
    const bool late = unixSeconds >= 0;
    out = late ? kLatest : kEarliest;
    return late ? Timeval::kTicksPerSecond - 1 : 0;
}

/// The stamp of the moment, if there is one; else logs the fields and gives the stamp at that end of time.
Timeval stampOf(const char *operation, const StructTm &tm, std::optional<std::int64_t> unixSeconds,
                std::uint32_t ticks = 0)
{
    Timeval stamp;
    if (unixSeconds && stamp.setUnixSeconds(*unixSeconds, ticks)) {
        return stamp;
    }
    const auto shown = [](std::int32_t field, int base) {
        return static_cast<int>(static_cast<std::int64_t>(field) + base);
    };
    logger.warn("%s(%d-%d-%d %d:%02d:%02d) failed!", operation, shown(tm.year, 1900), shown(tm.month, 1),
                tm.dayOfMonth, tm.hours, tm.minutes, tm.seconds);
    return Timeval(tm.year >= kYearOfUnixEpoch ? Timeval::kMax : Timeval::kMin);
}

std::optional<std::int64_t> secondsIn(const ZoneSource *zone, const StructTm &tm)
{
    return zone ? zone->unixSeconds(tm) : std::nullopt;
}

/// Finds the fields whose moment in the zone is the given one. The offset is asked for the fields as they
/// would stand without it, then for the fields that this gives, which settles it but for the hours around a
/// change of the offset; there the daylight flag decides.
bool breakDown(const ZoneSource &zone, std::int64_t unixSeconds, StructTm &out)
{
    std::int64_t offset = 0;
    for (int round = 0; round < 3; ++round) {
        for (const std::int32_t daylight : {-1, 0, 1}) {
            out.setUtcSeconds(unixSeconds + offset);
            out.daylight = daylight;
            if (round > 0 && zone.unixSeconds(out) == unixSeconds) {
                return true;
            }
        }
        out.daylight = -1;
        offset = zone.offsetSeconds(out);
        if (offset == ZoneSource::kUnknownOffset) {
            return false;
        }
    }
    return false;
}

} // namespace

std::int64_t StructTm::asUtcSeconds() const
{
    const std::int64_t days = calendar::daysSinceEpoch(std::int64_t{year} + 1900, month, dayOfMonth);
    return days * calendar::kSecondsPerDay + std::int64_t{hours} * 3600 + std::int64_t{minutes} * 60 +
           seconds;
}

void StructTm::setUtcSeconds(std::int64_t unixSeconds)
{
    const std::int64_t days = calendar::floorDivide(unixSeconds, calendar::kSecondsPerDay);
    const auto rest = static_cast<std::int32_t>(unixSeconds - days * calendar::kSecondsPerDay);
    const calendar::Date date = calendar::dateOf(days);
    seconds = rest % 60;
    minutes = rest / 60 % 60;
    hours = rest / 3600;
    dayOfMonth = date.dayOfMonth;
    month = date.month;
    year = static_cast<std::int32_t>(date.year - 1900);
    weekDay = calendar::weekDayOf(days);
    yearDay = static_cast<std::int32_t>(days - calendar::daysSinceEpoch(date.year, 0, 1));
    daylight = 0;
}

Timeval GmtStructTm::toUnixTime() const
{
    return stampOf("GmtStructTm::toUnixTime", *this, asUtcSeconds());
}

Timeval LocalStructTm::toUnixTime() const
{
    return stampOf("LocalStructTm::toUnixTime", *this, LocalZoneSource::instance().unixSeconds(*this));
}

Timeval LocalStructTmHires::toUnixTime() const
{
    return stampOf("LocalStructTmHires::toUnixTime", *this, LocalZoneSource::instance().unixSeconds(*this),
                   ticks);
}

void StructTmInTimezone::fromUnixTime(std::int64_t unixSeconds)
{
    if (!zone || !breakDown(*zone, unixSeconds, *this)) {
        logFailedBreakDown("StructTmInTimezone::fromUnixTime", unixSeconds);
        setOutOfRange(unixSeconds, *this);
    }
}

Timeval StructTmInTimezone::toUnixTime() const
{
    return stampOf("StructTmInTimezone::toUnixTime", *this, secondsIn(zone, *this));
}

void StructTmInTimezoneHires::fromUnixTime(std::int64_t unixSeconds, std::uint32_t ticksOfSecond)
{
    ticks = ticksOfSecond;
    if (!zone || !breakDown(*zone, unixSeconds, *this)) {
        logFailedBreakDown("StructTmInTimezoneHires::fromUnixTime", unixSeconds);
        ticks = setOutOfRange(unixSeconds, *this);
    }
}

Timeval StructTmInTimezoneHires::toUnixTime() const
{
    return stampOf("StructTmInTimezoneHires::toUnixTime", *this, secondsIn(zone, *this), ticks);
}

void Timeval::toGmt(GmtStructTm &out) const
{
    out.setUtcSeconds(signedUnixSeconds());
}

void Timeval::toLocal(LocalStructTm &out) const
{
    const std::int64_t seconds = signedUnixSeconds();
    if (!platform::localTime(seconds, out)) {
        logFailedBreakDown("_localtime64_s", seconds);
        setOutOfRange(seconds, out);
    }
}

void Timeval::toLocalHires(LocalStructTmHires &out) const
{
    if (!toLocalHiresQuietly(out)) {
        logFailedBreakDown("_localtime64_s", signedUnixSeconds());
    }
}

bool Timeval::toLocalHiresQuietly(LocalStructTmHires &out) const
{
    const std::int64_t seconds = signedUnixSeconds();
    const bool found = platform::localTime(seconds, out);
    out.ticks = found ? ticksOfSecond() : setOutOfRange(seconds, out);
    return found;
}

void Timeval::toZone(const ZoneSource &zone, StructTmInTimezone &out) const
{
    out.zone = &zone;
    out.fromUnixTime(signedUnixSeconds());
}

void Timeval::toZoneHires(const ZoneSource &zone, StructTmInTimezoneHires &out) const
{
    out.zone = &zone;
    out.fromUnixTime(signedUnixSeconds(), ticksOfSecond());
}

} // namespace velmox
