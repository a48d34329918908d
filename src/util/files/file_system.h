#pragma once

#include "util/text/pathname.h"
#include "util/time/timeval.h"

#include <cstdint>
#include <vector>

namespace velmox {

// Operations on names. Those that return bool leave the system's reason in the last error when it is false.

enum class PathKind
{
    Nothing = 0,
    File = 1,
    Folder = 2,
    Device = 3,
};

PathKind pathKind(const Pathname &path);

/// Stores the size in bytes.
bool fileSize(const Pathname &path, std::uint64_t &size);

/// Creates one folder, which everyone may read or only its owner.
bool makeDir(const Pathname &path, bool publicRead);
/// Creates the folder and the parents that are missing; true also when it is there already. Processes that
/// race for the same folders all succeed.
bool makeDirs(const Pathname &path, bool publicRead);

bool removeFile(const Pathname &path);
/// Renames within a volume, replacing what stands there.
bool moveFile(const Pathname &from, const Pathname &to);

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
