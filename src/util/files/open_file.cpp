#include "util/files/open_file.h"

#include "util/files/file_permissions.h"
#include "util/files/handle_stream.h"

#include <fcntl.h>
#include <string_view>
#include <utility>

namespace velmox {

namespace {

struct OpenForm
{
    DWORD disposition;
    DWORD access;
    DWORD sharing;
};

constexpr DWORD kShareReadAndDelete = FILE_SHARE_READ | FILE_SHARE_DELETE;

constexpr OpenForm kAppend = {OPEN_ALWAYS, GENERIC_WRITE, kShareReadAndDelete};
constexpr OpenForm kUpdateOrCreate = {OPEN_ALWAYS, GENERIC_READ | GENERIC_WRITE, kShareReadAndDelete};
constexpr OpenForm kWrite = {CREATE_ALWAYS, GENERIC_WRITE, kShareReadAndDelete};
constexpr OpenForm kUpdate = {OPEN_EXISTING, GENERIC_READ | GENERIC_WRITE, kShareReadAndDelete};
constexpr OpenForm kRead = {OPEN_EXISTING, GENERIC_READ, kShareReadAndDelete | FILE_SHARE_WRITE};

bool has(std::string_view mode, char letter)
{
    return mode.find(letter) != std::string_view::npos;
}

const OpenForm &openFormOf(std::string_view mode)
{
    if (has(mode, 'a')) {
        return kAppend;
    }
    if (has(mode, 'w')) {
        return has(mode, '+') ? kUpdateOrCreate : kWrite;
    }
    return has(mode, '+') ? kUpdate : kRead;
}

FileHandle openHandle(const Pathname &path, const OpenForm &form)
{
    if (form.disposition == OPEN_EXISTING) {
        return FileHandle(CreateFileW(asWide(path), form.access, form.sharing, nullptr, form.disposition,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    FileSecurity security(FilePermissions::PublicRead);
    return security.isValid()
               ? FileHandle(CreateFileW(asWide(path), form.access, form.sharing, security.get(),
                                        form.disposition, FILE_ATTRIBUTE_NORMAL, nullptr))
               : FileHandle();
}

} // namespace

FileStar openFile(const Pathname &path, const char *modeText)
{
    const std::string_view mode(modeText);
    FileHandle handle = openHandle(path, openFormOf(mode));
    if (!handle.isValid()) {
        return FileStar();
    }
    int flags = has(mode, 'b') ? 0 : _O_TEXT;
    if (has(mode, 'a')) {
        flags |= _O_APPEND;
        if (!SetFilePointerEx(handle.get(), {}, nullptr, FILE_END)) {
            return FileStar();
        }
    }
    return streamFromHandle(std::move(handle), flags, modeText);
}

} // namespace velmox
