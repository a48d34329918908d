#pragma once

#include "util/pathname.h"
#include "util/timeval.h"

#include <cstdint>

namespace velmox {

/// A file as it was when it was looked at. A size and time of zero without `exists` mean no file.
struct FileStatus
{
    bool exists = false;
    std::uint64_t size = 0; ///< bytes
    Timeval modtime;

    /// Of what is no file, such as a directory, there is no status.
    static FileStatus of(const Pathname &path);
    bool operator==(const FileStatus &) const = default;
    /// "modtime 1795243876.514, 26 bytes", or "no file".
    Str toStr() const;
};

} // namespace velmox
