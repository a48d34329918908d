#pragma once

#include <cstdint>

/// Arithmetic of the proleptic Gregorian calendar. Days are counted from 1 January 1970.
namespace velmox::calendar {

inline constexpr std::int64_t kSecondsPerDay = 86'400;

struct Date
{
    std::int64_t year;
    std::int32_t month; ///< from 0
    std::int32_t dayOfMonth;
};

constexpr std::int64_t floorDivide(std::int64_t value, std::int64_t by)
{
    return value / by - (value % by < 0 ? 1 : 0);
}

/// A month or a day beyond its range carries over.
std::int64_t daysSinceEpoch(std::int64_t year, std::int32_t month, std::int32_t dayOfMonth);
Date dateOf(std::int64_t days);
/// Sunday is 0.
std::int32_t weekDayOf(std::int64_t days);

struct IsoWeek
{
    std::int64_t year;
    std::int32_t week; ///< from 1
};

/// The ISO 8601 week of a day: weeks begin on Monday, and the first holds the year's first Thursday.
/// `yearDay` counts from 0, and Sunday is `weekDay` 0.
IsoWeek isoWeekOf(std::int64_t year, std::int32_t yearDay, std::int32_t weekDay);

} // namespace velmox::calendar
