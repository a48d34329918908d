#pragma once

#include "util/text/pathname.h"

namespace velmox {

/// The folder in which a scheme's script keeps what it has to remember, below `modinputs` in the database
/// folder. Made if it isn't there; only its owner may look into it then.
///
/// Throws ModularInputsException if it cannot be made, or is no folder that can be read and written.
Pathname checkpointFolder(const Pathname &db, const Str &scheme);

} // namespace velmox
