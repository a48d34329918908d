#pragma once

#include "util/logger.h"

namespace velmox {

/// The logger `ModularInputs`, which all of the server's side of input programs writes to.
extern Logger modularInputsLog;

} // namespace velmox
