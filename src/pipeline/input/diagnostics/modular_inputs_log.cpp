#include "pipeline/input/diagnostics/modular_inputs_log.h"

namespace velmox {

Logger modularInputsLog("ModularInputs");

} // namespace velmox
