#include "capture/record/capture_output.h"

#include "capture/file/capture_format.h"
#include "util/text/base_exception.h"

namespace velmox {

namespace {

[[noreturn]] void failWithLastError(const Str &path)
{
    const DWORD error = GetLastError();
    throw ComponentException(Str::fromErrorFormat(error, "%s: %m", path.c_str()));
}

FileDescriptor openWith(const Str &path, DWORD access, DWORD sharing, DWORD disposition)
{
    return FileDescriptor(
        createFile(Pathname::fromUtf8(path), access, sharing, disposition, FilePermissions::Private)
            .release());
}

} // namespace

void CaptureOutput::refuseForeignFile(const Str &path)
{
    const FileDescriptor file =
        openWith(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
    if (!file.isOpen()) {
        return;
    }
    // A console or a pipe would be waited on for what it holds.
    if (GetFileType(file.get()) != FILE_TYPE_DISK) {
        throw ComponentException(Str::concat(path, ": this is no file on a disk"));
    }
    char bytes[capture_format::kMagic.size()];
    DWORD count = 0;
    if (ReadFile(file.get(), bytes, sizeof bytes, &count, nullptr) == 0) {
        failWithLastError(path);
    }
    if (count > 0 && !capture_format::kMagic.starts_with({bytes, count})) {
        throw ComponentException(Str::concat(path, ": this file is no capture, and is left as it is"));
    }
}

CaptureOutput::CaptureOutput(const Str &path)
    : path_(path), file_(openWith(path, GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS))
{
    if (!file_.isOpen()) {
        failWithLastError(path);
    }
}

void CaptureOutput::write(std::string_view bytes)
{
    if (file_.write(bytes.data(), bytes.size()) != static_cast<std::ptrdiff_t>(bytes.size())) {
        failWithLastError(path_);
    }
}

} // namespace velmox
