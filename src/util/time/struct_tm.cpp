#include "util/time/struct_tm.h"

#include "util/text/platform.h"
#include "util/time/calendar.h"

#include <algorithm>
#include <cstring>

namespace velmox {

namespace {

/// Set before `main` and only read afterwards, so that threads need no lock.
TimeFailureLog failureLog = nullptr;

void warn(const char *fmt, ...) VELMOX_PRINTF(1, 2);
void warn(const char *fmt, ...)
{
    if (failureLog != nullptr) {
        std::va_list args;
        va_start(args, fmt);
        failureLog(fmt, args);
        va_end(args);
    }
}

constexpr std::int32_t kYearOfUnixEpoch = 70;

// 31 December 9999 is a Friday, 1 January 1900 a Monday. Whether daylight saving time holds at these ends,
// nobody knows.
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
    warn("%s(%lld) failed!", operation, static_cast<long long>(unixSeconds));
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
    // Added in 64 bits: the fields are the caller's and may be anything.
    const auto shown = [](std::int32_t field, int base) {
        return static_cast<int>(static_cast<std::int64_t>(field) + base);
    };
    warn("%s(%d-%d-%d %d:%02d:%02d) failed!", operation, shown(tm.year, 1900), shown(tm.month, 1),
         tm.dayOfMonth, tm.hours, tm.minutes, tm.seconds);
    return Timeval(tm.year >= kYearOfUnixEpoch ? Timeval::kMax : Timeval::kMin);
}

std::optional<std::int64_t> secondsIn(const ZoneSource *zone, const StructTm &tm)
{
    return zone ? zone->unixSeconds(tm) : std::nullopt;
}

bool breakDownLocally(std::int64_t unixSeconds, StructTm &out)
{
    std::tm tm = {};
    if (!platform::localTime(unixSeconds, tm)) {
        return false;
    }
    out.setCTime(tm);
    return true;
}

/// Finds the fields whose moment in the zone is the given one. The offset is asked for the fields as they
/// would stand without it, then for the fields that this gives, which settles it but for the hours around a
/// change of the offset; there the daylight flag decides.
bool breakDown(const ZoneSource &zone, std::int64_t unixSeconds, StructTm &out)
{
    std::int64_t offset = 0;
    // Round 0 only guesses an offset; rounds 1 and 2 try the fields that the last offset gives, with each
    // answer that the zone may expect about daylight saving time.
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

void setTimeFailureLog(TimeFailureLog log)
{
    failureLog = log;
}

void StructTm::setCTime(const std::tm &tm)
{
    seconds = tm.tm_sec;
    minutes = tm.tm_min;
    hours = tm.tm_hour;
    dayOfMonth = tm.tm_mday;
    month = tm.tm_mon;
    year = tm.tm_year;
    weekDay = tm.tm_wday;
    yearDay = tm.tm_yday;
    daylight = tm.tm_isdst;
}

std::tm StructTm::toCTime() const
{
    std::tm tm = {};
    tm.tm_sec = seconds;
    tm.tm_min = minutes;
    tm.tm_hour = hours;
    tm.tm_mday = dayOfMonth;
    tm.tm_mon = month;
    tm.tm_year = year;
    tm.tm_isdst = daylight;
    return tm;
}

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
    if (!breakDownLocally(seconds, out)) {
        // Named after the call below, natively too: the same failure reads the same in every log.
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
    const bool found = breakDownLocally(seconds, out);
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

const LocalZoneSource &LocalZoneSource::instance()
{
    static const LocalZoneSource source;
    return source;
}

std::optional<std::int64_t> LocalZoneSource::unixSeconds(const StructTm &tm) const
{
    std::int64_t seconds = 0;
    return platform::localToUnix(tm.toCTime(), seconds) ? std::optional(seconds) : std::nullopt;
}

std::size_t LocalZoneSource::zoneName(const StructTm &tm, char *buffer, std::size_t size) const
{
    Str name;
    platform::localZoneName(tm.daylight > 0, name);
    const std::size_t length = std::min(size, name.size());
    std::memcpy(buffer, name.data(), length);
    return length;
}

std::int32_t LocalZoneSource::offsetSeconds(const StructTm &tm) const
{
    const std::optional<std::int64_t> seconds = unixSeconds(tm);
    // East of UTC clocks are ahead: the same fields read as UTC mean a later moment.
    return seconds ? static_cast<std::int32_t>(tm.asUtcSeconds() - *seconds) : kUnknownOffset;
}

} // namespace velmox
