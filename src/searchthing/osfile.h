#pragma once

#include "util/text/pathname.h"
#include "util/time/timeval.h"

#include <cstdint>
#include <string_view>

namespace velmox {

// File primitives that several programs share: what a file is at a moment, files that name their owner, locks
// that are files (lock.h), and files that are looked at from time to time (filesystem_change_watcher.h).

class FileSecurity;
enum class FilePermissions;

/// A file as it was when it was looked at. Size and time are zero when it does not exist.
struct FileStatus
{
    bool exists = false;
    std::uint64_t size = 0; ///< bytes
    Timeval modtime;

    /// A directory counts as no file.
    static FileStatus of(const Pathname &path);
    bool operator==(const FileStatus &) const = default;
    /// "modtime 1795243876.514, 26 bytes", or "no file".
    Str toStr() const;
    /// The seconds since 1970, to the millisecond.
    Str modtimeText() const;
};

/// The security attributes for a creation that insists on its permissions; logs and throws
/// `FilePermissionsException` when there are none.
FileSecurity requireFileSecurity(FilePermissions permissions);

/// Creates a file that must not be there yet, writes the content and closes it; nobody else can open it
/// meanwhile, so that nobody reads a part of it. False, with the reason in the last error, on failure; a
/// file that was created is deleted then.
bool createWithContent(const Pathname &path, std::string_view content);

/// Who this process is, for files that name their owner: the process number, LF and the host's name. It is
/// for people, who look after a lock that was left behind; no program reads it. Built on the first call.
const Str &ownerText();

} // namespace velmox
