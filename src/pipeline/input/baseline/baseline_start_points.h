#pragma once

#include "util/text/str.h"

#include <vector>

namespace velmox {

/// The components of a key path that a walk starts from.
using StartPath = StrVector;

/// The literal beginning of a hive pattern, split at its doubled backslashes; empty when the pattern begins
/// with anything but plain text.
StartPath literalComponents(const Str &pattern);

/// Orders the paths by their length and drops those below another one.
///
/// The path right behind a dropped one is not held against the same front path, at worst a second walk of a
/// subtree.
std::vector<StartPath> withoutCovered(std::vector<StartPath> paths);

} // namespace velmox
