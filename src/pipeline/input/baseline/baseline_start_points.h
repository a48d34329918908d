#pragma once

#include "pipeline/input/rules/hive_names.h"

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

/// A start path, split where the registry root that it begins in ends; both parts in upper case.
struct ResolvedStart
{
    Str root;
    /// With a backslash in front, or empty.
    Str rest;
    /// Null when the path begins in no root.
    const HiveKeyInfo *hive = nullptr;
};

/// Of several roots, one below the other, the longest counts. `hiveNames` must outlive the result.
ResolvedStart resolveRoot(const StartPath &path, const HiveNames &hiveNames);

} // namespace velmox
