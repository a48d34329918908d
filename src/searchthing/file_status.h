#pragma once

#include "util/text/pathname.h"
#include "util/time/timeval.h"

#include <cstdint>

namespace velmox {

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

} // namespace velmox
