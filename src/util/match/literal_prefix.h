#pragma once

#include "util/text/str.h"

namespace velmox {

/// Bytes that every match of a pattern begins with: what stands before its first special character, or
/// nothing when it has alternatives.
///
/// Holds for patterns compiled without options. A subject that lacks the prefix needs no regular expression
/// to be refused.
Str literalPrefix(const Str &pattern);

} // namespace velmox
