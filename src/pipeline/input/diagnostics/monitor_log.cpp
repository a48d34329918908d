#include "pipeline/input/diagnostics/monitor_log.h"

namespace velmox {

Logger monitorLog("velmox-regmon", false, 60, 100);

} // namespace velmox
