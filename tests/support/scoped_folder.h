#pragma once

#include "util/system/owned_handle.h"
#include "util/text/pathname.h"

#include <string_view>

namespace velmox::testing {

/// A new empty folder below the one for temporary files; it vanishes with all that is in it.
class ScopedFolder
{
public:
    ScopedFolder();
    ~ScopedFolder();
    ScopedFolder(const ScopedFolder &) = delete;
    ScopedFolder &operator=(const ScopedFolder &) = delete;

    const Pathname &path() const { return path_; }
    Pathname operator/(const char *name) const { return path_.join(name); }

    /// Number of files and folders in it.
    std::size_t count() const;

private:
    Pathname path_;
};

void writeWhole(const Pathname &path, std::string_view content);
/// The content, or "<unreadable>".
Str readWhole(const Pathname &path);

/// Holds a file open so that nobody can replace or delete it.
FileHandle lockOpen(const Pathname &path);

} // namespace velmox::testing
