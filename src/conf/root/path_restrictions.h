#pragma once

#include "conf/root/path_owner.h"

namespace velmox {

/// Whether this run leaves a path out, or an app stands in for the bundle in which it lies. The reason is
/// logged.
bool isPathLeftOut(const BundlesSetup &setup, const Pathname &path, const Str &handler,
                   const PathOwner &owner);

} // namespace velmox
