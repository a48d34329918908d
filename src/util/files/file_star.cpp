#include "util/files/file_star.h"

#include "util/files/handle_stream.h"
#include "util/system/last_error_keeper.h"
#include "util/text/pathname.h"

#include <fcntl.h>
#include <io.h>
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
    if (length > MAX_PATH) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    if (GetTempFileNameW(folder, L"VlxTMP", 0, name) == 0) {
        return false;
    }
    out = Pathname(asUtf16(name));
    return true;
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
    FileHandle handle(CreateFileW(asWide(path), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    FileStar file = handle.isValid() ? streamFromHandle(std::move(handle), 0, "w+b") : FileStar();
    if (!file.isOpen()) {
        const LastErrorKeeper keeper;
        DeleteFileW(asWide(path));
    }
    return file;
}

std::FILE *FileStar::release()
{
    return std::exchange(file_, nullptr);
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

bool FileStar::flush()
{
    return std::fflush(file_) == 0;
}

bool FileStar::setBinary()
{
    return _setmode(_fileno(file_), _O_BINARY) != -1;
}

} // namespace velmox
