#pragma once

// Operations on names: this header, and file_replace.h for putting a file in another's place. What is open
// has an owner: file_descriptor.h for a handle, file_star.h for a C stream; *_unicode_stream.h read and write
// lines of any encoding over a stream. A failure shows in the result, with the reason in the thread's last
// error; closing and cleaning up keep that error, so that whoever made the call can tell of it.

#include "util/text/pathname.h"
#include "util/time/timeval.h"

#include <cstdint>
#include <vector>

namespace velmox {

/// What stands at a path.
enum class PathKind
{
    Nothing = 0, ///< or what cannot be looked at: the last error tells
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

/// Fails while somebody has the file open who does not share its deletion.
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
