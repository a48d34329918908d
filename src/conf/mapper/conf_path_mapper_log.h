#pragma once

#include "util/log/logger.h"

namespace velmox {

/// `ConfPathMapper`, the logger of the mapper of conf files and of its parts.
extern Logger confPathMapperLog;

} // namespace velmox
