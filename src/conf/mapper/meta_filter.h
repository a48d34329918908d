#pragma once

#include "conf/root/bundles_setup.h"
#include "conf/tree/conf_path_base.h"

#include <functional>

namespace velmox {

/// Writes a copy of a metadata file of `app`, a path without parts, to a new file in `directory`, whose name
/// goes to `copy`: without the stanzas of whose paths `isThere` says no. False, with the reason in the log
/// and nothing left behind, on failure.
///
/// When stanzas were left out, the copy bears the latest of the modification times that the others tell of
/// themselves, if they do: so it stays the same copy while only the objects that are gone change.
bool filterMetaFile(const BundlesSetup &setup, const Pathname &file, const ConfPathBase &app,
                    const Pathname &directory, const std::function<bool(const ConfPathBase &)> &isThere,
                    Pathname &copy);

} // namespace velmox
