#pragma once

#include "util/text/str.h"

#include <cstdint>
#include <string_view>

namespace velmox {

/// The English name in full, "???" when there is none. The short form is its first three letters.
std::string_view weekDayName(std::int32_t weekDay);
std::string_view monthName(std::int32_t month);

/// Appends the first `digits` decimal digits of a fraction given in 100-nanosecond ticks of the second.
void appendFraction(Str &out, std::uint32_t ticks, unsigned digits);

} // namespace velmox
