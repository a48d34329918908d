#pragma once

#include "util/str.h"

namespace velmox {

/// Translation between drive letters and device paths, such as `c:` and `\device\harddiskvolume2`. The map is
/// read from the system on first use and kept for the life of the process. Main thread only.

/// A process pattern's leading drive as the device path, ready to stand in a regular expression.
Str translateProcessDrive(const Str &proc);

/// A path's leading device as its drive, for display.
Str deviceToDrive(const Str &path);

} // namespace velmox
