#pragma once

#include "util/text/pathname.h"

#include <vector>

namespace velmox {

// Patterns of paths: `*` stands for any text within one level, the empty one too, and no other character is
// special. Case does not count. What holds a `*` matches neither "." nor "..", so that no name leads out of
// its place. Separators are backslashes.

/// Whether the path has the pattern's levels, each as the pattern says.
bool matchesPathPattern(const Pathname &path, const Pathname &pattern);

/// What exists and matches, in the order of the names by 16-bit units.
std::vector<Pathname> expandPathPattern(const Pathname &pattern);

/// One level: a name without separators.
bool matchesNamePattern(const WideStr &name, const WideStr &pattern);

} // namespace velmox
