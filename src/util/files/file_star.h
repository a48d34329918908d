#pragma once

#include "util/system/owned_handle.h"
#include "util/text/pathname.h"
#include "util/text/str.h"

#include <cstddef>
#include <cstdio>
#include <utility>

namespace velmox {

/// Owner of a C stream. Closing keeps the thread's last error as it was.
class FileStar
{
public:
    FileStar() = default;
    explicit FileStar(std::FILE *file) : file_(file) {}
    FileStar(FileStar &&other) noexcept : file_(other.release()) {}
    FileStar &operator=(FileStar &&other) noexcept;
    ~FileStar() { close(); }

    /// A new file for reading and writing that nobody else can open and that vanishes when closed; closed,
    /// with the reason in the last error, when there is none.
    static FileStar tempFile();

    bool isOpen() const { return file_ != nullptr; }
    std::FILE *get() const { return file_; }
    /// Gives the stream to the caller, who closes it.
    std::FILE *release() { return std::exchange(file_, nullptr); }
    /// False when what was buffered could not be written.
    bool close();

    /// Reads up to the next LF, which is left out as is a CR before it or before the end of the file. False
    /// at the end of the file.
    bool readLine(Str &out);
    /// The number of bytes; -1 on failure. Reading gives 0 at the end of the file.
    std::ptrdiff_t read(void *buffer, std::size_t length);
    std::ptrdiff_t write(const void *bytes, std::size_t length);
    /// False when what was buffered did not reach the system.
    bool flush() { return std::fflush(file_) == 0; }
    /// Turns off the run-time library's translation of line ends; to be called before the first byte.
    bool setBinary();

private:
    std::FILE *file_ = nullptr;
};

/// Opens a file as a C stream. Of the letters of `mode`, `a` appends, `w` empties the file, `w` with `+`
/// opens or creates it for reading and writing as it stands, `+` alone opens an existing file for both, and
/// anything else reads. Text mode unless there is a `b`. A new file gets `FilePermissions::PublicRead`. The
/// result is closed, with the reason in the last error, on failure.
FileStar openFile(const Pathname &path, const char *mode);

/// Makes a C stream of a file handle. `flags` are those of `_open_osfhandle`, `mode` that of `fopen`. On
/// failure the result is closed, the handle too, and the reason is in the last error.
FileStar streamFromHandle(FileHandle handle, int flags, const char *mode);

} // namespace velmox
