#include "conf/root/setting_values.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace velmox {

namespace {

constexpr std::uint64_t kMillisecond = 1000;
constexpr std::uint64_t kSecond = 1000 * kMillisecond;
constexpr std::uint64_t kMinute = 60 * kSecond;
constexpr std::uint64_t kHour = 60 * kMinute;
constexpr std::uint64_t kDay = 24 * kHour;

struct TimeUnit
{
    std::uint64_t microseconds;
    /// Filled up with empty names.
    std::array<std::string_view, 5> names;
};

/// Lengths and not dates: a month has 30 days, a quarter 90, a year 365.
constexpr TimeUnit kTimeUnits[] = {
    {1, {"us"}},
    {kMillisecond, {"ms"}},
    {10 * kMillisecond, {"cs"}},
    {100 * kMillisecond, {"ds"}},
    {kSecond, {"s", "sec", "secs", "second", "seconds"}},
    {kMinute, {"m", "min", "mins", "minute", "minutes"}},
    {kHour, {"h", "hr", "hrs", "hour", "hours"}},
    {kDay, {"d", "day", "days"}},
    {7 * kDay, {"w", "week", "weeks"}},
    {30 * kDay, {"mon", "month", "months"}},
    {90 * kDay, {"q", "qtr", "qtrs", "quarter", "quarters"}},
    {365 * kDay, {"y", "yr", "yrs", "year", "years"}},
};

std::optional<std::uint64_t> microsecondsOf(std::string_view unit)
{
    // Seconds. Asked first, or the names that fill the rows up would match.
    if (unit.empty()) {
        return kSecond;
    }
    for (const TimeUnit &known : kTimeUnits) {
        if (std::find(known.names.begin(), known.names.end(), unit) != known.names.end()) {
            return known.microseconds;
        }
    }
    return std::nullopt;
}

std::optional<std::uint64_t> multiply(std::uint64_t count, std::uint64_t microseconds)
{
    // Counted in milliseconds from here on, so that long times have room in 64 bits.
    if (microseconds < kMillisecond) {
        return count / (kMillisecond / microseconds);
    }
    std::uint64_t result;
    if (__builtin_mul_overflow(count, microseconds / kMillisecond, &result)) {
        return std::nullopt;
    }
    return result;
}

struct Replacement
{
    std::string_view text;
    std::string_view expression;
};

/// The first that fits counts: three dots stand before one.
constexpr Replacement kReplacements[] = {
    {"*", R"([^\\]*)"},
    {"...", ".*"},
    {".", R"(\.)"},
    {R"(\)", R"(\\)"},
};

/// Null when the text begins with nothing that is replaced.
const Replacement *replacementAt(std::string_view text)
{
    for (const Replacement &replacement : kReplacements) {
        if (text.starts_with(replacement.text)) {
            return &replacement;
        }
    }
    return nullptr;
}

} // namespace

std::optional<std::uint64_t> millisecondsOfTime(const Str &text)
{
    const Str time = text.trimmed().lowered();
    const std::size_t unitAt = std::min(time.view().find_first_not_of("0123456789"), time.size());
    // What a bare unit means; without digits the call below leaves it.
    std::uint64_t count = 1;
    if (std::from_chars(time.data(), time.data() + unitAt, count).ec == std::errc::result_out_of_range) {
        return std::nullopt;
    }
    const std::optional<std::uint64_t> unit = microsecondsOf(time.substr(unitAt).trimmed());
    return unit && !time.empty() ? multiply(count, *unit) : std::nullopt;
}

Str blacklistPattern(const Str &wildcard)
{
    Str pattern;
    std::string_view rest = wildcard;
    while (!rest.empty()) {
        const Replacement *const replacement = replacementAt(rest);
        pattern += replacement == nullptr ? rest.substr(0, 1) : replacement->expression;
        rest.remove_prefix(replacement == nullptr ? 1 : replacement->text.size());
    }
    return pattern;
}

} // namespace velmox
