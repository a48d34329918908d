#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace velmox {

/// Writes the time of an event as RFC 3339 in UTC with milliseconds, such as 2026-11-21T08:36:51.835Z: the
/// second by `seconds` since 1970, the milliseconds by the end of `localTime`. Returns what it wrote; nothing
/// for a time that is no number, or of a year that does not have four digits.
std::string_view writeTimestamp(std::string_view seconds, std::string_view localTime,
                                std::span<char, 24> room);

/// The time of an event in milliseconds since 1970, from the same two texts; nothing where one is no number.
std::optional<std::int64_t> millisecondsOf(std::string_view seconds, std::string_view localTime);

/// A local time of the form month/day/year hour:minute:second.milliseconds as year-month-day and the rest; as
/// it is if it has another form. Uses `room` for the text.
std::string_view writeSortableTime(std::string_view localTime, std::span<char, 24> room);

} // namespace velmox
