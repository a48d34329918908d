#pragma once

#include "conf/root/bundles_setup.h"

namespace velmox {

/// Makes sure that a file exists, with the directories above it. A `.conf` file that is empty gets a UTF-8
/// byte order mark and a line end. What goes wrong is logged, with the setup's texts of paths. False, with
/// the reason in the last error, when there is no such file that can be written.
bool createConfFile(const BundlesSetup &setup, const Pathname &file);

} // namespace velmox
