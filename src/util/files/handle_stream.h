#pragma once

#include "util/files/file_star.h"
#include "util/system/owned_handle.h"

namespace velmox {

/// Makes a C stream of a file handle. `flags` are those of `_open_osfhandle`, `mode` that of `fopen`. On
/// failure the result is closed, the handle too, and the reason is in the last error.
FileStar streamFromHandle(FileHandle handle, int flags, const char *mode);

} // namespace velmox
