#include "util/time/calendar.h"

namespace velmox::calendar {

namespace {

constexpr std::int64_t kDaysPerEra = 146'097;  // 400 years
constexpr std::int64_t kEpochInEras = 719'468; // 1 March of the year 0 to 1 January 1970

bool isLeapYear(std::int64_t year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

std::int32_t daysInYear(std::int64_t year)
{
    return isLeapYear(year) ? 366 : 365;
}

/// Days from 1 March to the first of a month that is counted from March. From there on the months run 31, 30,
/// 31, 30, 31 and again so, 153 days every five; January and February are the beginning of a third round.
constexpr std::int64_t daysBeforeMonth(std::int64_t monthFromMarch)
{
    return (153 * monthFromMarch + 2) / 5;
}

constexpr std::string_view kWeekDays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                          "Thursday", "Friday", "Saturday"};
constexpr std::string_view kMonths[] = {"January",   "February", "March",    "April",
                                        "May",       "June",     "July",     "August",
                                        "September", "October",  "November", "December"};

template <std::size_t count>
std::string_view nameAt(const std::string_view (&names)[count], std::int32_t at)
{
    return at >= 0 && static_cast<std::size_t>(at) < count ? names[at] : "???";
}

} // namespace

// Years that begin in March have their leap day at the end, which makes both directions plain arithmetic.
std::int64_t daysSinceEpoch(std::int64_t year, std::int32_t month, std::int32_t dayOfMonth)
{
    const std::int64_t monthsFromMarch = year * 12 + month - 2;
    const std::int64_t marchYear = floorDivide(monthsFromMarch, 12);
    const std::int64_t era = floorDivide(marchYear, 400);
    const std::int64_t yearOfEra = marchYear - era * 400;
    const std::int64_t firstOfMonth =
        yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + daysBeforeMonth(monthsFromMarch - marchYear * 12);
    return era * kDaysPerEra + firstOfMonth - kEpochInEras + dayOfMonth - 1;
}

Date dateOf(std::int64_t days)
{
    const std::int64_t shifted = days + kEpochInEras;
    const std::int64_t era = floorDivide(shifted, kDaysPerEra);
    const std::int64_t dayOfEra = shifted - era * kDaysPerEra;
    // Leap days first, so that every year is left with 365 days: one is over after 1,460 days, the last of
    // each fourth year, but not after 36,524, a century, and again after 146,096, the era.
    const std::int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1'460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    const std::int64_t month = (monthFromMarch + 2) % 12;
    return {.year = era * 400 + yearOfEra + (month < 2 ? 1 : 0),
            .month = static_cast<std::int32_t>(month),
            .dayOfMonth = static_cast<std::int32_t>(dayOfYear - daysBeforeMonth(monthFromMarch) + 1)};
}

std::int32_t weekDayOf(std::int64_t days)
{
    constexpr std::int64_t kThursday = 4; // 1 January 1970
    return static_cast<std::int32_t>(days + kThursday - floorDivide(days + kThursday, 7) * 7);
}

IsoWeek isoWeekOf(std::int64_t year, std::int32_t yearDay, std::int32_t weekDay)
{
    // The week belongs to the year that its Thursday lies in.
    const std::int64_t fromMonday = (std::int64_t{weekDay} + 6) % 7;
    std::int64_t thursday = yearDay - fromMonday + 3;
    if (thursday < 0) {
        --year;
        thursday += daysInYear(year);
    } else if (thursday >= daysInYear(year)) {
        thursday -= daysInYear(year);
        ++year;
    }
    return {.year = year, .week = static_cast<std::int32_t>(thursday / 7 + 1)};
}

std::string_view weekDayName(std::int32_t weekDay)
{
    return nameAt(kWeekDays, weekDay);
}

std::string_view monthName(std::int32_t month)
{
    return nameAt(kMonths, month);
}

} // namespace velmox::calendar
