#pragma once

#include "util/files/file_descriptor.h"
#include "util/text/pathname.h"
#include "util/time/timeval.h"

namespace velmox {

/// Puts the file `from` in the place of `to`, which at any moment holds its old or its new content whole.
/// Across volumes a copy takes the place, and `from` stays: its removal is left to the caller. False, with
/// the reason in the last error, on failure.
bool replaceFile(const Pathname &from, const Pathname &to);

/// How an operation with retries went.
struct RetryResult
{
    const char *operation = "Rename";
    bool succeeded = false;
    unsigned statusCode = 0; ///< the system's error code of the last attempt
    unsigned attempts = 0;
    Timeval firstTime;
    Timeval lastTime;

    /// One sentence for the log.
    Str toStr() const;
};

/// Renames a file, replacing what stands there, and tries again after `sleepMs` milliseconds while the error
/// is one that may pass, such as a sharing violation. At most `attempts` times, once at least. The last error
/// is that of the last attempt.
bool renameWithRetries(const Pathname &from, RetryResult &result, const Pathname &to, unsigned attempts,
                       unsigned sleepMs);

/// Copies a file. What stands at the target is deleted first, and the new file gets the permissions. When
/// both names mean the same file, nothing is done. False, with the reason in the last error and without a
/// torn target, on failure.
bool copyFileTo(const Pathname &from, const Pathname &to, FilePermissions permissions);

/// Copies the content of a file behind what `target` holds.
bool copyContent(const Pathname &from, FileDescriptor &target);

} // namespace velmox
