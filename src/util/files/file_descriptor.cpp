#include "util/files/file_descriptor.h"

#include <algorithm>

namespace velmox {

namespace {

/// People look at a file while it is written, and rename or delete it; a second writer would tear it.
constexpr DWORD kShareReadAndDelete = FILE_SHARE_READ | FILE_SHARE_DELETE;

} // namespace

bool FileDescriptor::openWrite(const Pathname &path, FilePermissions permissions)
{
    close();
    handle_ = createFile(path, GENERIC_WRITE, kShareReadAndDelete, CREATE_NEW, permissions);
    return isOpen();
}

bool FileDescriptor::openAppend(const Pathname &path, FilePermissions permissions)
{
    close();
    // Nobody else writes to it, so that the end found now stays where this handle writes.
    handle_ = createFile(path, GENERIC_WRITE, kShareReadAndDelete, OPEN_ALWAYS, permissions);
    if (isOpen() && !SetFilePointerEx(get(), {}, nullptr, FILE_END)) {
        close();
    }
    return isOpen();
}

std::ptrdiff_t FileDescriptor::write(const void *bytes, std::size_t length)
{
    // WriteFile counts in 32 bits; whole pages below 2 GiB keep later pieces aligned.
    constexpr std::size_t kLargestPiece = 0x7FFFF000;
    const auto *from = static_cast<const char *>(bytes);
    std::size_t written = 0;
    while (written < length) {
        const auto piece = static_cast<DWORD>(std::min(length - written, kLargestPiece));
        DWORD count = 0;
        if (!WriteFile(get(), from + written, piece, &count, nullptr) || count == 0) {
            return written == 0 ? -1 : static_cast<std::ptrdiff_t>(written);
        }
        written += count;
    }
    return static_cast<std::ptrdiff_t>(written);
}

std::ptrdiff_t FileDescriptor::writeFormat(const char *fmt, ...)
{
    Str text;
    std::va_list args;
    va_start(args, fmt);
    text.vformat(fmt, args);
    va_end(args);
    return write(text.data(), text.size());
}

} // namespace velmox
