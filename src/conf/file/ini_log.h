#pragma once

#include "util/log/logger.h"

namespace velmox {

/// `IniFile`, the logger of all who read and write conf files.
extern Logger iniLog;

} // namespace velmox
