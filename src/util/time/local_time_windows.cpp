#include "util/system/windows_api.h"
#include "util/text/platform.h"
#include "util/time/c_time_fields.h"

namespace velmox::platform {

bool localTime(std::int64_t unixSeconds, StructTm &out)
{
    const __time64_t seconds = unixSeconds;
    std::tm tm = {};
    if (_localtime64_s(&tm, &seconds) != 0) {
        return false;
    }
    out = fromCTime(tm);
    return true;
}

bool localToUnix(const StructTm &tm, std::int64_t &unixSeconds)
{
    std::tm fields = toCTime(tm);
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
