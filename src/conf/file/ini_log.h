#pragma once

#include "util/logger.h"

namespace velmox {

/// `IniFile`, the logger of all who read and write conf files.
extern Logger iniLog;

} // namespace velmox
