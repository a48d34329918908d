#pragma once

#include "util/system/windows_api.h"

namespace velmox {

/// Writes a minidump of this process to a file. False when DbgHelp.dll cannot, or the file cannot be made.
bool writeMiniDump(const wchar_t *path, DWORD threadId, EXCEPTION_POINTERS *exception);

} // namespace velmox
