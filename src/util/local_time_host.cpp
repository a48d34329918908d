#include "util/platform.h"
#include "util/str.h"
#include "util/struct_tm.h"

#include <ctime>

namespace velmox::platform {

namespace {

// The bounds of the C run-time library of Windows.
constexpr std::int64_t kLastLocalTime = 32'535'244'799;

} // namespace

bool localTime(std::int64_t unixSeconds, StructTm &out)
{
    const std::time_t seconds = unixSeconds;
    std::tm tm = {};
    if (unixSeconds < 0 || unixSeconds > kLastLocalTime || !localtime_r(&seconds, &tm)) {
        return false;
    }
    out = {.seconds = tm.tm_sec,
           .minutes = tm.tm_min,
           .hours = tm.tm_hour,
           .dayOfMonth = tm.tm_mday,
           .month = tm.tm_mon,
           .year = tm.tm_year,
           .weekDay = tm.tm_wday,
           .yearDay = tm.tm_yday,
           .daylight = tm.tm_isdst};
    return true;
}

bool localToUnix(const StructTm &tm, std::int64_t &unixSeconds)
{
    std::tm fields = {};
    fields.tm_sec = tm.seconds;
    fields.tm_min = tm.minutes;
    fields.tm_hour = tm.hours;
    fields.tm_mday = tm.dayOfMonth;
    fields.tm_mon = tm.month;
    fields.tm_year = tm.year;
    fields.tm_isdst = tm.daylight;
    const std::time_t seconds = std::mktime(&fields);
    if (seconds < 0 || seconds > kLastLocalTime) {
        return false;
    }
    unixSeconds = seconds;
    return true;
}

void localZoneName(bool daylight, Str &out)
{
    out << tzname[daylight ? 1 : 0];
}

} // namespace velmox::platform
