#pragma once

#include "util/time/struct_tm.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace velmox {

/// What a time zone answers about a moment that is broken down in it. Safe to ask from any thread.
class ZoneSource
{
public:
    static constexpr std::int32_t kUnknownOffset = 0x40000000;

    virtual ~ZoneSource() = default;

    /// Seconds since 1970; none when the zone cannot place the moment.
    virtual std::optional<std::int64_t> unixSeconds(const StructTm &tm) const = 0;
    /// Writes the zone's name in UTF-8, without a NUL and cut to `size` bytes, and returns its length.
    virtual std::size_t zoneName(const StructTm &tm, char *buffer, std::size_t size) const = 0;
    /// Seconds east of UTC, or `kUnknownOffset`.
    virtual std::int32_t offsetSeconds(const StructTm &tm) const = 0;
};

/// The process's local zone.
class LocalZoneSource : public ZoneSource
{
public:
    static const LocalZoneSource &instance();

    std::optional<std::int64_t> unixSeconds(const StructTm &tm) const override;
    std::size_t zoneName(const StructTm &tm, char *buffer, std::size_t size) const override;
    std::int32_t offsetSeconds(const StructTm &tm) const override;
};

} // namespace velmox
