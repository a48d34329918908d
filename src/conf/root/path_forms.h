#pragma once

#include "util/text/pathname.h"

#include <vector>

namespace velmox {

/// The path with backslashes for slashes, each run of them reduced to one, and none at its end.
Pathname cleanedPath(const Pathname &path);
/// The form that all spellings of a path by case have in common.
Pathname foldedPath(const Pathname &path);
/// Whether two paths differ by case at most.
bool isSamePath(const Pathname &a, const Pathname &b);
/// The levels of `path` below `folder`: none for the folder itself. False when it lies elsewhere.
bool levelsBelow(const Pathname &path, const Pathname &folder, std::vector<Pathname> &out);

} // namespace velmox
