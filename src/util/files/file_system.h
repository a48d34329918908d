#pragma once

#include "util/text/pathname.h"

#include <cstdint>

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

} // namespace velmox
