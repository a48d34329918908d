#pragma once

// A moment is a `Timeval`. It is broken down into a `StructTm` of some zone (struct_tm.h), for whose rules a
// `ZoneSource` answers, and written by a `TimeFormatter`; calendar.h has the arithmetic. Intervals are
// measured by a `Clock` (timeout.h), as moments jump when somebody sets the machine's clock.

#include "util/text/platform.h"
#include "util/text/str.h"

#include <compare>
#include <cstdint>

namespace velmox {

struct GmtStructTm;
struct LocalStructTm;
struct LocalStructTmHires;
struct StructTmInTimezone;
struct StructTmInTimezoneHires;
class ZoneSource;

/// A moment: 100-nanosecond ticks since 1 January 1601 UTC. Zero and all bits set are reserved for the
/// earliest and the latest moment.
class Timeval
{
public:
    static constexpr std::uint64_t kTicksPerSecond = 10'000'000;
    static constexpr std::uint64_t kUnixEpoch = platform::kUnixEpoch;
    static constexpr std::uint64_t kMin = 0;
    static constexpr std::uint64_t kMax = ~std::uint64_t{0};

    constexpr Timeval() = default;
    constexpr explicit Timeval(std::uint64_t ticks) : ticks_(ticks) {}

    /// By the clock of the system, which goes in steps of up to 16 ms and may be set back.
    static Timeval now();
    /// The stamp as records keep it, the low half first.
    static constexpr Timeval fromHalves(std::uint32_t low, std::uint32_t high)
    {
        return Timeval(std::uint64_t{high} << 32 | low);
    }
    /// Stores the stamp of a moment given in seconds since 1970; false when it has none.
    bool setUnixSeconds(std::int64_t unixSeconds, std::uint32_t ticksOfSecond = 0);

    constexpr std::uint64_t ticks() const { return ticks_; }
    constexpr std::uint32_t ticksOfSecond() const
    {
        return static_cast<std::uint32_t>(ticks_ % kTicksPerSecond);
    }
    constexpr void setMin() { ticks_ = kMin; }
    constexpr void setMax() { ticks_ = kMax; }
    constexpr bool isMin() const { return ticks_ == kMin; }
    constexpr bool isMax() const { return ticks_ == kMax; }

    /// Whole seconds since 1970, 0 for earlier stamps.
    std::int64_t toUnixSeconds() const;
    /// Whole seconds, negative when the other moment is later.
    std::int64_t secondsSince(const Timeval &other) const;
    /// Rounded up, so that waiting that long is enough; negative when the other moment is later.
    std::int64_t millisecondsSince(const Timeval &other) const;

    /// Local date and time in the C run-time library's fixed layout, or a word for what has none.
    Str toStr() const;
    /// Appends the seconds since 1970 in decimal with `digits` digits of fraction.
    void toUnixStr(Str &out, unsigned digits) const;

    /// Break the moment down. One beyond the reach of the C run-time library or of the zone yields the
    /// out-of-range fields, with a warning in the log.
    void toGmt(GmtStructTm &out) const;
    void toLocal(LocalStructTm &out) const;
    void toLocalHires(LocalStructTmHires &out) const;
    /// The same without a warning, for the log itself: each of its lines needs a date, a line that warns of a
    /// date too. False when out of range.
    bool toLocalHiresQuietly(LocalStructTmHires &out) const;
    void toZone(const ZoneSource &zone, StructTmInTimezone &out) const;
    void toZoneHires(const ZoneSource &zone, StructTmInTimezoneHires &out) const;

    friend constexpr auto operator<=>(const Timeval &a, const Timeval &b) = default;

private:
    /// Whole seconds since 1970, rounded down, negative for earlier stamps.
    std::int64_t signedUnixSeconds() const;

    std::uint64_t ticks_ = 0;
};

// FILETIME, the system's form of a moment, has the ticks and the beginning of `Timeval`. Templates, as it
// comes with the headers of Windows, which pure code does without.
template <class FileTime>
Timeval timevalOf(const FileTime &time)
{
    return Timeval::fromHalves(time.dwLowDateTime, time.dwHighDateTime);
}
template <class FileTime>
FileTime fileTimeOf(const Timeval &moment)
{
    FileTime time;
    time.dwLowDateTime = static_cast<std::uint32_t>(moment.ticks());
    time.dwHighDateTime = static_cast<std::uint32_t>(moment.ticks() >> 32);
    return time;
}

/// Appends the first `digits` decimal digits of a fraction given in 100-nanosecond ticks of the second.
void appendFraction(Str &out, std::uint32_t ticks, unsigned digits);

/// The span between two moments for people to read, in the unit that fits: "1.500 seconds".
Str formatDuration(const Timeval &from, const Timeval &to);

} // namespace velmox
