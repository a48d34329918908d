#include "util/platform.h"
#include "util/struct_tm.h"
#include "util/windows_api.h"

#include <ctime>

namespace velmox::platform {

bool localTime(std::int64_t unixSeconds, StructTm &out)
{
    const __time64_t seconds = unixSeconds;
    std::tm tm = {};
    if (_localtime64_s(&tm, &seconds) != 0) {
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
    const __time64_t seconds = _mktime64(&fields);
    if (seconds == -1) {
        return false;
    }
    unixSeconds = seconds;
    return true;
}

void localZoneName(bool daylight, Str &out)
{
    // Until it is told to look, the run-time library has the names of a built-in zone.
    static const bool looked = (_tzset(), true);
    static_cast<void>(looked);
    // It keeps them in the system's code page.
    const char *name = _tzname[daylight ? 1 : 0];
    wchar_t wide[128];
    const int units = MultiByteToWideChar(CP_ACP, 0, name, -1, wide, static_cast<int>(std::size(wide)));
    if (units > 1) {
        out.appendUtf16(asUtf16(wide), static_cast<std::size_t>(units) - 1);
    }
}

} // namespace velmox::platform
