#include "util/time/timeval.h"

#include "util/time/calendar.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr std::uint64_t kTicksPerMillisecond = 10'000;
constexpr std::uint64_t kTicksPerMicrosecond = 10;

struct DurationUnit
{
    std::int64_t above; ///< microseconds
    double microseconds;
    const char *name;
};

/// The coarsest first. A unit begins at about three, not at one, so that a short span keeps its digits.
constexpr DurationUnit kDurationUnits[] = {
    {8'000'000'000, 3.6e9, "hours"},
    {3'000'000, 1e6, "seconds"},
    {3'000, 1e3, "milliseconds"},
};

Str formatMicroseconds(std::int64_t span)
{
    for (const DurationUnit &unit : kDurationUnits) {
        if (span > unit.above) {
            const double value = static_cast<double>(span) / unit.microseconds;
            const int decimals = value >= 99.5 ? 1 : value >= 9.95 ? 2 : 3;
            return Str::fromFormat("%5.*f %s", decimals, value, unit.name);
        }
    }
    return Str::fromFormat("%lld microsecond%s", static_cast<long long>(span), span == 1 ? "" : "s");
}

} // namespace

Timeval Timeval::now()
{
    return Timeval(platform::systemTime());
}

bool Timeval::setUnixSeconds(std::int64_t unixSeconds, std::uint32_t ticksOfSecond)
{
    constexpr auto kEpochSeconds = static_cast<std::int64_t>(kUnixEpoch / kTicksPerSecond);
    // One second short of the end, so that no fraction reaches the stamp that is reserved.
    constexpr auto kLastSecond = static_cast<std::int64_t>((kMax - kUnixEpoch) / kTicksPerSecond) - 1;
    if (unixSeconds < -kEpochSeconds || unixSeconds > kLastSecond) {
        return false;
    }
    ticks_ = static_cast<std::uint64_t>(unixSeconds + kEpochSeconds) * kTicksPerSecond + ticksOfSecond;
    return true;
}

std::int64_t Timeval::toUnixSeconds() const
{
    return ticks_ < kUnixEpoch ? 0 : static_cast<std::int64_t>((ticks_ - kUnixEpoch) / kTicksPerSecond);
}

std::int64_t Timeval::signedUnixSeconds() const
{
    return static_cast<std::int64_t>(ticks_ / kTicksPerSecond) -
           static_cast<std::int64_t>(kUnixEpoch / kTicksPerSecond);
}

std::int64_t Timeval::secondsSince(const Timeval &other) const
{
    return ticks_ >= other.ticks_ ? static_cast<std::int64_t>((ticks_ - other.ticks_) / kTicksPerSecond)
                                  : -static_cast<std::int64_t>((other.ticks_ - ticks_) / kTicksPerSecond);
}

std::int64_t Timeval::millisecondsSince(const Timeval &other) const
{
    // Less than 0 when it wraps: division then rounds towards 0, which is up as well.
    const auto ticks = static_cast<std::int64_t>(ticks_ - other.ticks_ + kTicksPerMillisecond - 1);
    return ticks / static_cast<std::int64_t>(kTicksPerMillisecond);
}

Str Timeval::toStr() const
{
    if (isMax()) {
        return "MAX_TIME";
    }
    if (isMin()) {
        return "MIN_TIME";
    }
    const std::int64_t seconds = toUnixSeconds();
    std::tm tm = {};
    if (seconds > platform::kLastLocalTime || !platform::localTime(seconds, tm)) {
        return Str::fromFormat("INVALID_TIME (%lld)", static_cast<long long>(seconds));
    }
    // The layout of asctime in the run-time library of Windows, which writes the day with a zero in front;
    // the C standard has a blank there.
    return Str::fromFormat("%.3s %.3s %02d %02d:%02d:%02d %d", calendar::weekDayName(tm.tm_wday).data(),
                           calendar::monthName(tm.tm_mon).data(), tm.tm_mday, tm.tm_hour, tm.tm_min,
                           tm.tm_sec, tm.tm_year + 1900);
}

void Timeval::toUnixStr(Str &out, unsigned digits) const
{
    out << static_cast<long long>(toUnixSeconds());
    if (digits != 0) {
        out.push_back('.');
        appendFraction(out, ticks_ < kUnixEpoch ? 0 : ticksOfSecond(), digits);
    }
}

void appendFraction(Str &out, std::uint32_t ticks, unsigned digits)
{
    constexpr std::uint32_t kTenth = 1'000'000;
    // Digit by digit, and zeros as soon as nothing is left. More ticks than a second has would give a digit
    // above 9.
    std::uint32_t rest = std::min(ticks, 10 * kTenth - 1);
    for (; digits != 0 && rest != 0; --digits) {
        out.push_back(static_cast<char>('0' + rest / kTenth));
        rest = rest % kTenth * 10;
    }
    out.append(digits, '0');
}

Str formatDuration(const Timeval &from, const Timeval &to)
{
    const bool negative = to < from;
    const std::uint64_t ticks = negative ? from.ticks() - to.ticks() : to.ticks() - from.ticks();
    Str text = negative ? "-" : "";
    text += formatMicroseconds(static_cast<std::int64_t>(ticks / kTicksPerMicrosecond));
    return text;
}

} // namespace velmox
