#pragma once

#include "util/text/pathname.h"

#include <vector>

namespace velmox {

// Two paths that Windows takes for one differ in text by case and by the separators in which they were
// written. Paths of the store are cleaned where they come in, and folded where they become keys of a map.

/// The path with backslashes for slashes, each run of them reduced to one, and none at its end.
Pathname cleanedPath(const Pathname &path);
/// The form that all spellings of a path by case have in common.
Pathname foldedPath(const Pathname &path);
/// Whether two paths differ by case at most.
bool isSamePath(const Pathname &a, const Pathname &b);
/// The levels of `path` below `folder`: none for the folder itself. False when it lies elsewhere.
bool levelsBelow(const Pathname &path, const Pathname &folder, std::vector<Pathname> &out);

// Patterns of paths: `*` stands for any text within one level, the empty one too, and no other character is
// special. Case does not count. What holds a `*` matches neither "." nor "..", so that no name leads out of
// its place. Separators are backslashes.

/// Whether the path has the pattern's levels, each as the pattern says.
bool matchesPathPattern(const Pathname &path, const Pathname &pattern);

/// One level: a name without separators.
bool matchesNamePattern(const WideStr &name, const WideStr &pattern);

} // namespace velmox
