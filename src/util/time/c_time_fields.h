#pragma once

#include "util/time/struct_tm.h"

#include <ctime>

namespace velmox::platform {

/// The fields of the C run-time library's broken-down time, which count as ours do.
inline StructTm fromCTime(const std::tm &tm)
{
    return {.seconds = tm.tm_sec,
            .minutes = tm.tm_min,
            .hours = tm.tm_hour,
            .dayOfMonth = tm.tm_mday,
            .month = tm.tm_mon,
            .year = tm.tm_year,
            .weekDay = tm.tm_wday,
            .yearDay = tm.tm_yday,
            .daylight = tm.tm_isdst};
}

/// The way back, for `mktime`, which finds the days of week and year itself.
inline std::tm toCTime(const StructTm &tm)
{
    std::tm fields = {};
    fields.tm_sec = tm.seconds;
    fields.tm_min = tm.minutes;
    fields.tm_hour = tm.hours;
    fields.tm_mday = tm.dayOfMonth;
    fields.tm_mon = tm.month;
    fields.tm_year = tm.year;
    fields.tm_isdst = tm.daylight;
    return fields;
}

} // namespace velmox::platform
