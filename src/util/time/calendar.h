#pragma once

#include <cstdint>
#include <string_view>

/// Arithmetic of the proleptic Gregorian calendar, and the names that it gives. Days are counted from 1
/// January 1970.
namespace velmox::calendar {

inline constexpr std::int64_t kSecondsPerDay = 86'400;

/// A day by its date.
struct Date
{
    std::int64_t year;
    std::int32_t month; ///< from 0
    std::int32_t dayOfMonth;
};

/// Rounds down, for moments before 1970 as well. `by` is positive.
constexpr std::int64_t floorDivide(std::int64_t value, std::int64_t by)
{
    return value / by - (value % by < 0 ? 1 : 0);
}

/// A month or a day beyond its range carries over.
std::int64_t daysSinceEpoch(std::int64_t year, std::int32_t month, std::int32_t dayOfMonth);
Date dateOf(std::int64_t days);
/// Sunday is 0.
std::int32_t weekDayOf(std::int64_t days);

/// A week as ISO 8601 names it. Around New Year its year may be another one than its days'.
struct IsoWeek
{
    std::int64_t year;
    std::int32_t week; ///< from 1
};

/// The ISO 8601 week of a day: weeks begin on Monday, and the first holds the year's first Thursday.
/// `yearDay` counts from 0, and Sunday is `weekDay` 0.
IsoWeek isoWeekOf(std::int64_t year, std::int32_t yearDay, std::int32_t weekDay);

/// The English name in full, "???" when there is none; Sunday and January are 0. The short form is its first
/// three letters.
std::string_view weekDayName(std::int32_t weekDay);
std::string_view monthName(std::int32_t month);

} // namespace velmox::calendar
