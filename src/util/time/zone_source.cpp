#include "util/time/zone_source.h"

#include "util/text/platform.h"

#include <algorithm>
#include <cstring>

namespace velmox {

const LocalZoneSource &LocalZoneSource::instance()
{
    static const LocalZoneSource source;
    return source;
}

std::optional<std::int64_t> LocalZoneSource::unixSeconds(const StructTm &tm) const
{
    std::int64_t seconds = 0;
    return platform::localToUnix(tm, seconds) ? std::optional(seconds) : std::nullopt;
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
    return seconds ? static_cast<std::int32_t>(tm.asUtcSeconds() - *seconds) : kUnknownOffset;
}

} // namespace velmox
