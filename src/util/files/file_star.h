#pragma once

#include "util/text/str.h"

#include <cstddef>
#include <cstdio>

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
    std::FILE *release();
    /// False when what was buffered could not be written.
    bool close();

    /// Reads up to the next LF, which is left out as is a CR before it or before the end of the file. False
    /// at the end of the file.
    bool readLine(Str &out);
    /// The number of bytes; -1 on failure. Reading gives 0 at the end of the file.
    std::ptrdiff_t read(void *buffer, std::size_t length);
    std::ptrdiff_t write(const void *bytes, std::size_t length);
    bool flush();
    bool setBinary();

private:
    std::FILE *file_ = nullptr;
};

} // namespace velmox
