#pragma once

#include "util/text/str.h"

#include <cstdint>
#include <optional>

namespace velmox {

// Values of settings of the bootstrap file that have a grammar of their own. Plain text in, plain values out:
// what cannot be read is the caller's to replace by a default.

/// Milliseconds of a time such as "30s", "2 minutes" or "500ms". A bare number means seconds, a bare unit one
/// of it; what is shorter than a millisecond is cut off. Nothing for a negative number, an unknown unit, an
/// empty text or an overflow.
std::optional<std::uint64_t> millisecondsOfTime(const Str &text);

/// The regular expression for a path wildcard: `*` stands for any text without a backslash, three dots for
/// any text. What else means something in a regular expression keeps its meaning.
Str blacklistPattern(const Str &wildcard);

} // namespace velmox
