#pragma once

#include "util/text/str.h"

#include <vector>

namespace velmox {

/// A drive and the device behind it, both lower case: `c:` and `\device\harddiskvolume2`.
struct DriveMapping
{
    Str drive;
    Str device;
};

using DriveMappings = std::vector<DriveMapping>;

/// Carries paths between drives and devices: the kernel and the driver name files by devices, people by
/// drives. Prefixes are compared without case and need not end at a backslash, so that of two devices one of
/// which begins with the other's name, the first in the list is taken.
class DriveMap
{
public:
    using Fill = void (*)(DriveMappings &out);

    /// `fill` is called on first use, and again as long as it finds nothing.
    explicit DriveMap(Fill fill) : fill_(fill) {}
    /// For drives that are known.
    explicit DriveMap(DriveMappings mappings) : mappings_(std::move(mappings)) {}

    /// Replaces a leading drive of a pattern by the device path, as a regular expression: the rest is one
    /// already.
    Str translateProcessDrive(const Str &proc);
    /// Replaces a leading device of a path by its drive. A path on no known device, such as that of a
    /// network share, stays as it is.
    Str deviceToDrive(const Str &path);
    const DriveMappings &mappings();

private:
    Fill fill_ = nullptr;
    DriveMappings mappings_;
};

/// The drives of this system, as they were at the first call that found any. Main thread only.
DriveMap &systemDrives();

} // namespace velmox
