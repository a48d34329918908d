#pragma once

#include "pipeline/input/modinputs/scheme.h"

#include <vector>

namespace velmox {

/// The folders that may define schemes: the system's first, then the apps' of each parent by the byte order
/// of their names.
std::vector<AppFolder> appFolders(const Pathname &systemDir, const std::vector<Pathname> &appParents);

/// The schemes that a folder's README\inputs.conf.spec defines, in the order of the file; none without it.
///
/// A scheme is what stands before `://` in the names of stanzas, and its parameters are the keys of them all.
/// Lines of description, which begin with an asterisk, are no keys.
std::vector<SchemeSpec> readSchemeSpecs(const AppFolder &app);

} // namespace velmox
