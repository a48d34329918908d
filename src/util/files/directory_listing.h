#pragma once

#include "util/text/pathname.h"
#include "util/time/timeval.h"

#include <cstdint>
#include <vector>

namespace velmox {

/// An entry of a directory as the file system told it when the directory was listed.
struct DirectoryEntry
{
    WideStr name;
    bool isFolder = false;
    std::uint64_t size = 0; ///< bytes
    Timeval modtime;
};

/// Puts the entries of a directory into `out`, in the order of their names by 16-bit units, without "." and
/// "..". False, with the reason in the last error, when it cannot be listed to its end.
bool listDirectory(const Pathname &directory, std::vector<DirectoryEntry> &out);

/// The entry of a file or folder, under the name that is stored for it. The path's last component holds no
/// wildcard. False, with the reason in the last error, when there is none.
bool findEntry(const Pathname &path, DirectoryEntry &out);

} // namespace velmox
