#include "util/files/file_star.h"

#include "util/files/file_permissions.h"
#include "util/system/last_error_keeper.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <io.h>
#include <string_view>
#include <utility>

namespace velmox {

namespace {

/// A path in the folder for temporary files, where an empty file stands now.
bool makeTempName(Pathname &out)
{
    wchar_t folder[MAX_PATH + 1];
    wchar_t name[MAX_PATH + 1];
    const DWORD length = GetTempPathW(static_cast<DWORD>(std::size(folder)), folder);
    if (length == 0) {
        return false;
    }
    // The size that is needed, when the buffer is too small.
    if (length > MAX_PATH) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    // Windows takes three letters of the prefix.
    if (GetTempFileNameW(folder, L"VlxTMP", 0, name) == 0) {
        return false;
    }
    out = Pathname(asUtf16(name));
    return true;
}

struct OpenForm
{
    DWORD disposition;
    DWORD access;
    DWORD sharing;
};

// What is written here may be looked at, renamed and deleted meanwhile, but has one writer. What is only read
// may be written by others: logs and settings that are in use must open.
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
    // Nothing is created, so that there is no need to look the identities up for permissions.
    if (form.disposition == OPEN_EXISTING) {
        return FileHandle(CreateFileW(asWide(path), form.access, form.sharing, nullptr, form.disposition,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    return createFile(path, form.access, form.sharing, form.disposition, FilePermissions::PublicRead);
}

/// The run-time library tells its failures by errno alone; Wine's says nothing when its tables are full.
void setLastErrorFromErrno()
{
    constexpr struct
    {
        int number;
        DWORD error;
    } kErrors[] = {
        {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
        {0, ERROR_TOO_MANY_OPEN_FILES},
        {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
        {EBADF, ERROR_INVALID_HANDLE},
    };
    const int number = errno;
    SetLastError(ERROR_INVALID_PARAMETER);
    for (const auto &row : kErrors) {
        if (row.number == number) {
            SetLastError(row.error);
        }
    }
}

} // namespace

FileStar &FileStar::operator=(FileStar &&other) noexcept
{
    if (this != &other) {
        close();
        file_ = other.release();
    }
    return *this;
}

FileStar FileStar::tempFile()
{
    Pathname path;
    if (!makeTempName(path)) {
        return FileStar();
    }
    // GetTempFileNameW has left an empty file there to hold the name; this opens it anew, for nobody else to
    // open.
    FileHandle handle(CreateFileW(asWide(path), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    FileStar file = handle.isValid() ? streamFromHandle(std::move(handle), 0, "w+b") : FileStar();
    if (!file.isOpen()) {
        const LastErrorKeeper keeper;
        DeleteFileW(asWide(path));
    }
    return file;
}

bool FileStar::close()
{
    std::FILE *file = release();
    if (!file) {
        return true;
    }
    const LastErrorKeeper keeper;
    return std::fclose(file) == 0;
}

bool FileStar::readLine(Str &out)
{
    out.clear();
    // Bytes gather here first: to append each by itself would cost more than to read it.
    char piece[256];
    std::size_t length = 0;
    int byte = EOF;
    while ((byte = std::getc(file_)) != EOF && byte != '\n') {
        piece[length++] = static_cast<char>(byte);
        if (length == sizeof piece) {
            out.append(piece, std::exchange(length, 0));
        }
    }
    out.append(piece, length);
    if (byte == EOF && out.empty()) {
        return false;
    }
    if (!out.empty() && out.back() == '\r') {
        out.pop_back();
    }
    return true;
}

std::ptrdiff_t FileStar::read(void *buffer, std::size_t length)
{
    const std::size_t count = std::fread(buffer, 1, length, file_);
    const bool failed = count == 0 && length != 0 && std::feof(file_) == 0;
    return failed ? -1 : static_cast<std::ptrdiff_t>(count);
}

std::ptrdiff_t FileStar::write(const void *bytes, std::size_t length)
{
    const std::size_t count = std::fwrite(bytes, 1, length, file_);
    return count == 0 && length != 0 ? -1 : static_cast<std::ptrdiff_t>(count);
}

bool FileStar::setBinary()
{
    return _setmode(_fileno(file_), _O_BINARY) != -1;
}

FileStar openFile(const Pathname &path, const char *modeText)
{
    const std::string_view mode(modeText);
    FileHandle handle = openHandle(path, openFormOf(mode));
    if (!handle.isValid()) {
        return FileStar();
    }
    int flags = has(mode, 'b') ? 0 : _O_TEXT;
    if (has(mode, 'a')) {
        // The run-time library moves to the end before each write; this moves there before the first question
        // where it stands.
        flags |= _O_APPEND;
        if (!SetFilePointerEx(handle.get(), {}, nullptr, FILE_END)) {
            return FileStar();
        }
    }
    return streamFromHandle(std::move(handle), flags, modeText);
}

FileStar streamFromHandle(FileHandle handle, int flags, const char *mode)
{
    // Wine's failure without an errno must not be read as the one before it.
    errno = 0;
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle.get()), flags);
    if (descriptor == -1) {
        setLastErrorFromErrno();
        return FileStar();
    }
    handle.release();
    // From here on the descriptor owns the handle, and closing it closes both.
    FileStar file(_fdopen(descriptor, mode));
    if (!file.isOpen()) {
        setLastErrorFromErrno();
        const LastErrorKeeper keeper;
        _close(descriptor);
    }
    return file;
}

} // namespace velmox
