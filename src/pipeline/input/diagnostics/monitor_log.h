#pragma once

#include "util/log/logger.h"

namespace velmox {

/// The program's own logger, `velmox-regmon`, which every part of the monitor writes to.
extern Logger monitorLog;

} // namespace velmox
