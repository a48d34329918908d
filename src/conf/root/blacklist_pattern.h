#pragma once

#include "util/text/str.h"

namespace velmox {

/// The regular expression for a path wildcard: `*` stands for any text without a backslash, three dots for
/// any text. What else means something in a regular expression keeps its meaning.
Str blacklistPattern(const Str &wildcard);

} // namespace velmox
