#pragma once

#include "util/files/file_permissions.h"
#include "util/system/owned_handle.h"
#include "util/text/pathname.h"
#include "util/text/str.h"

#include <cstddef>

namespace velmox {

/// Owner of an operating-system file handle. Closing keeps the thread's last error as it was; assignment
/// closes what was held before. Failures leave the reason in the last error.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(HANDLE handle) : handle_(handle) {}

    /// Creates a file that must not be there yet; others may read and delete it meanwhile.
    bool openWrite(const Pathname &path, FilePermissions permissions);
    /// Opens or creates a file for writing behind its end; others may read and delete it meanwhile.
    bool openAppend(const Pathname &path, FilePermissions permissions);

    bool isOpen() const { return handle_.isValid(); }
    HANDLE get() const { return handle_.get(); }
    /// Gives the handle to the caller, who closes it.
    HANDLE release() { return handle_.release(); }
    void close() { handle_.reset(); }

    /// Writes on until all is written. The number of bytes, less than asked for after a failure, or -1 when
    /// nothing was written.
    std::ptrdiff_t write(const void *bytes, std::size_t length);
    std::ptrdiff_t writeFormat(const char *fmt, ...) VELMOX_PRINTF(2, 3);

private:
    FileHandle handle_;
};

} // namespace velmox
