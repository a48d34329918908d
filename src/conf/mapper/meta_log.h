#pragma once

#include "util/log/logger.h"

namespace velmox {

/// `ConfObjectManagerDB`, the logger of all who read and write metadata files.
extern Logger metaLog;

} // namespace velmox
