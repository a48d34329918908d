#pragma once

#include "util/time/timeval.h"

#include <cstdarg>
#include <cstdint>
#include <ctime>

namespace velmox {

class ZoneSource;

/// Takes the warning about a moment that cannot be broken down or put together, as a format and its
/// arguments. The log, which stands above, sets its own before `main`; without one the result alone tells of
/// the failure.
using TimeFailureLog = void (*)(const char *fmt, std::va_list args);
void setTimeFailureLog(TimeFailureLog log);

/// A moment broken down into calendar fields. Which zone it is meant in, the derived types say.
///
/// A conversion that fails yields the latest or the earliest of these: 31 December 9999 with every field at
/// its end, or 1 January 1900.
struct StructTm
{
    std::int32_t seconds = 0;
    std::int32_t minutes = 0;
    std::int32_t hours = 0;
    std::int32_t dayOfMonth = 1;
    std::int32_t month = 0;    ///< from 0
    std::int32_t year = 0;     ///< since 1900
    std::int32_t weekDay = 1;  ///< Sunday is 0
    std::int32_t yearDay = 0;  ///< from 0
    std::int32_t daylight = 0; ///< positive in daylight saving time, negative when not known

    /// The fields of the C run-time library's broken-down time, which count as ours do.
    void setCTime(const std::tm &tm);
    /// The way back, for `mktime`, which finds the days of week and year itself.
    std::tm toCTime() const;

    /// Seconds since 1970 of the same fields read as UTC; fields beyond their range carry over.
    std::int64_t asUtcSeconds() const;
    /// Breaks UTC seconds down. The year must fit its field.
    void setUtcSeconds(std::int64_t unixSeconds);
};

/// UTC.
struct GmtStructTm : StructTm
{
    /// The stamp of the moment; the latest or the earliest one, by the year, with a warning in the log, when
    /// it has none. The same holds for the other types.
    Timeval toUnixTime() const;
};

/// The process's local zone.
struct LocalStructTm : StructTm
{
    Timeval toUnixTime() const;
};

/// The process's local zone, with the 100-nanosecond ticks of the second, below 10,000,000.
struct LocalStructTmHires : StructTm
{
    std::uint32_t ticks = 0;

    Timeval toUnixTime() const;
};

/// A zone of the caller's, who keeps the zone object alive.
struct StructTmInTimezone : StructTm
{
    const ZoneSource *zone = nullptr;

    /// Breaks the moment down in `zone`; when it has no place there, yields the out-of-range fields with a
    /// warning in the log.
    void fromUnixTime(std::int64_t unixSeconds);
    Timeval toUnixTime() const;
};

/// The same with the 100-nanosecond ticks of the second.
struct StructTmInTimezoneHires : StructTm
{
    const ZoneSource *zone = nullptr;
    std::uint32_t ticks = 0;

    /// As above; `ticksOfSecond` is kept unless the fields are out of range.
    void fromUnixTime(std::int64_t unixSeconds, std::uint32_t ticksOfSecond);
    Timeval toUnixTime() const;
};

} // namespace velmox
