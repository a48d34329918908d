#pragma once

#include "util/log/logger.h"

namespace velmox {

/// The logger `ModularInputs`: of the server's side of input programs, and of what both sides read.
extern Logger modularInputsLog;

} // namespace velmox
