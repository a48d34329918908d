#pragma once

#include "pipeline/input/rules/drive_map.h"
#include "pipeline/input/rules/hive_names.h"

#include <optional>
#include <string_view>

namespace velmox {

/// A process for a pattern, by its image path.
struct QuietProcess
{
    /// For the filters; empty for an unknown process.
    std::string_view folded;
    /// As events have it, with a drive where there is one.
    std::string_view displayed;
};

/// A `proc` that matches what `proc` does, but for one process, of whatever drive. The result begins with an
/// assertion, so a drive at the front of `proc`, which the monitor takes for one at the very front alone, is
/// put in as its device.
Str procWithout(const Str &proc, const QuietProcess &process, DriveMap &drives);

/// A `hive` that matches what `hive` does, but for one path and all below it, which is given for the filters
/// and as events have it. What is literal at the beginning of `hive` stays there, since the driver's filter
/// and baselines go by it. `hive` itself where it matches nothing of the path anyway; nothing where a root at
/// its front has no plain separator behind it, since only at the very front it is a root.
std::optional<Str> hiveWithout(const Str &hive, std::string_view filterPath, std::string_view path,
                               const HiveNames &hiveNames);

} // namespace velmox
