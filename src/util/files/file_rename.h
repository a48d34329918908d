#pragma once

#include "util/text/pathname.h"
#include "util/time/timeval.h"

namespace velmox {

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

} // namespace velmox
