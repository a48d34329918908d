#pragma once

#include "util/system/windows_api.h"

namespace velmox::testbed {

/// The handles that a process has open, from the system's list of all. Under Wine GetProcessHandleCount is a
/// stub, and the list of processes tells the size of a process's table in place of the handles in it.
unsigned handleCount(DWORD pid);

} // namespace velmox::testbed
