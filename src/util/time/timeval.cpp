#include "util/time/timeval.h"

#include "util/text/platform.h"
#include "util/time/struct_tm.h"
#include "util/time/time_names.h"

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
    StructTm tm;
    if (seconds > platform::kLastLocalTime || !platform::localTime(seconds, tm)) {
        return Str::fromFormat("INVALID_TIME (%lld)", static_cast<long long>(seconds));
    }
    const std::string_view weekDay = weekDayName(tm.weekDay).substr(0, 3);
    const std::string_view month = monthName(tm.month).substr(0, 3);
    return Str::fromFormat("%.3s %.3s %02d %02d:%02d:%02d %d", weekDay.data(), month.data(), tm.dayOfMonth,
                           tm.hours, tm.minutes, tm.seconds, tm.year + 1900);
}

void Timeval::toUnixStr(Str &out, unsigned digits) const
{
    out << static_cast<long long>(toUnixSeconds());
    if (digits != 0) {
        out.push_back('.');
        appendFraction(out, ticks_ < kUnixEpoch ? 0 : ticksOfSecond(), digits);
    }
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
