#pragma once

#include "util/files/file_star.h"
#include "util/text/pathname.h"

namespace velmox {

/// Opens a file as a C stream. Of the letters of `mode`, `a` appends, `w` empties the file, `w` with `+`
/// opens or creates it for reading and writing as it stands, `+` alone opens an existing file for both, and
/// anything else reads. Text mode unless there is a `b`. A new file gets `FilePermissions::PublicRead`. The
/// result is closed, with the reason in the last error, on failure.
FileStar openFile(const Pathname &path, const char *mode);

} // namespace velmox
