#pragma once

#include "util/log/logger.h"

namespace velmox {

/// `ConfPathMapperManager`, the logger of the manager of mappers and of its parts.
extern Logger mapperManagerLog;

} // namespace velmox
