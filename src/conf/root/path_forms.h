#pragma once

#include "util/text/char_set.h"
#include "util/text/pathname.h"

#include <string_view>
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

// Names that a file may have.

/// The bytes that no name of a file may hold on Windows, of those that can be typed.
inline constexpr CharSet kUnsafeInNames("<>:\"/\\|?*");

/// Whether Windows takes the name for a device, in whatever directory it stands, or for another name: one
/// that ends in a point or a blank loses it, which makes "anna." the same as "anna".
///
/// The names of devices are those that Microsoft's "Naming Files, Paths, and Namespaces" lists, and the two
/// of the console, which the system's own check for devices knows as well. Case does not count, nor does what
/// follows a point, nor do blanks before it: "nul .txt" is the null device.
bool isReservedName(std::string_view name);

} // namespace velmox
