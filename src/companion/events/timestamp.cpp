#include "companion/events/timestamp.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>

namespace velmox {

namespace {

constexpr std::size_t kMillisecondDigits = 3;
/// "mm/dd/yyyy hh:mm:ss.mmm"
constexpr std::size_t kLocalTimeLength = 23;

/// Writes the last digits of a number into the whole of a room, with zeros in front.
void putNumber(unsigned number, char *begin, char *end)
{
    while (end != begin) {
        *--end = static_cast<char>('0' + number % 10);
        number /= 10;
    }
}

bool readNumber(std::string_view text, std::int64_t &out)
{
    const char *const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, out);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

} // namespace

std::optional<std::int64_t> millisecondsOf(std::string_view seconds, std::string_view localTime)
{
    // Beyond, the clocks of browsers end.
    constexpr std::int64_t kMost = 8'000'000'000'000;
    std::int64_t number = 0;
    std::int64_t fraction = 0;
    const std::size_t point = localTime.rfind('.');
    const bool isTime = readNumber(seconds, number) && point != std::string_view::npos &&
                        readNumber(localTime.substr(point + 1), fraction);
    return isTime && number > -kMost && number < kMost ? std::optional(number * 1000 + fraction)
                                                       : std::nullopt;
}

std::string_view writeTimestamp(std::string_view seconds, std::string_view localTime,
                                std::span<char, 24> room)
{
    std::int64_t number = 0;
    const char *const end = seconds.data() + seconds.size();
    const auto parsed = std::from_chars(seconds.data(), end, number);
    // From the year 0 to 9999; beyond, the calendar's years have no room for the number.
    constexpr std::int64_t kFirst = -62167219200;
    constexpr std::int64_t kLast = 253402300799;
    if (seconds.empty() || parsed.ptr != end || number < kFirst || number > kLast ||
        localTime.size() < kMillisecondDigits) {
        return {};
    }
    const std::chrono::sys_seconds time{std::chrono::seconds(number)};
    const auto days = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(days);
    const std::chrono::hh_mm_ss clock(time - days);
    char *const at = room.data();
    std::ranges::copy(std::string_view("0000-00-00T00:00:00.000Z"), at);
    putNumber(static_cast<unsigned>(static_cast<int>(date.year())), at, at + 4);
    putNumber(static_cast<unsigned>(date.month()), at + 5, at + 7);
    putNumber(static_cast<unsigned>(date.day()), at + 8, at + 10);
    putNumber(static_cast<unsigned>(clock.hours().count()), at + 11, at + 13);
    putNumber(static_cast<unsigned>(clock.minutes().count()), at + 14, at + 16);
    putNumber(static_cast<unsigned>(clock.seconds().count()), at + 17, at + 19);
    localTime.copy(at + 20, kMillisecondDigits, localTime.size() - kMillisecondDigits);
    return {at, room.size()};
}

std::string_view writeSortableTime(std::string_view localTime, std::span<char, 24> room)
{
    if (localTime.size() != kLocalTimeLength || localTime[2] != '/' || localTime[5] != '/') {
        return localTime;
    }
    char *const at = room.data();
    localTime.copy(at, 4, 6);
    at[4] = '-';
    localTime.copy(at + 5, 2, 0);
    at[7] = '-';
    localTime.copy(at + 8, 2, 3);
    localTime.copy(at + 10, std::string_view::npos, 10);
    return {at, kLocalTimeLength};
}

} // namespace velmox
