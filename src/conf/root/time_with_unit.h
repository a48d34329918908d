#pragma once

#include "util/text/str.h"

#include <cstdint>
#include <optional>

namespace velmox {

/// Milliseconds of a time such as "30s", "2 minutes" or "500ms". A bare number means seconds, a bare unit one
/// of it; what is shorter than a millisecond is cut off. Nothing for a negative number, an unknown unit, an
/// empty text or an overflow.
std::optional<std::uint64_t> millisecondsOfTime(const Str &text);

} // namespace velmox
