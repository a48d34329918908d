#include "util/text/platform.h"
#include "util/text/str.h"
#include "util/time/c_time_fields.h"

namespace velmox::platform {

bool localTime(std::int64_t unixSeconds, StructTm &out)
{
    const std::time_t seconds = unixSeconds;
    std::tm tm = {};
    if (unixSeconds < 0 || unixSeconds > kLastLocalTime || !localtime_r(&seconds, &tm)) {
        return false;
    }
    out = fromCTime(tm);
    return true;
}

bool localToUnix(const StructTm &tm, std::int64_t &unixSeconds)
{
    std::tm fields = toCTime(tm);
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
