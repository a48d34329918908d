#pragma once

#include "util/match/regex.h"

namespace velmox {

/// Why a pattern does not match all of a path, in a clause: the character at which the literal text that it
/// begins with departs from the path, a text that any match would have to hold, how far it would match, or
/// that it finds nothing. Characters count from 1. Both are folded as the filters have them.
///
/// To be asked of a pattern that does not match; a clause about one that does is wrong.
Str whyNotAll(const Regex &pattern, const Str &path);

/// The same for a pattern that is not found anywhere in a text.
Str whyNotFound(const Regex &pattern, const Str &text);

} // namespace velmox
