#pragma once

#include "util/text/pathname.h"

#include <cstdint>
#include <memory>

namespace velmox {

/// An open file that an appender writes to the end of. Failures leave their reason in the last error.
class LogFile
{
public:
    virtual ~LogFile() = default;
    virtual bool size(std::uint64_t &bytes) = 0;
    /// The number of bytes written, which may be fewer than asked for; -1 on failure.
    virtual std::ptrdiff_t write(const char *bytes, std::size_t length) = 0;
};

/// What appenders need of the file system. Failures leave their reason in the last error.
class LogFileSystem
{
public:
    virtual ~LogFileSystem() = default;
    /// Creates the file if it is missing; others may read, rename and delete it meanwhile. Null on failure.
    virtual std::unique_ptr<LogFile> openAppend(const Pathname &path) = 0;
    virtual bool exists(const Pathname &path) = 0;
    virtual bool remove(const Pathname &path) = 0;
    /// Replaces what stands at `to`.
    virtual bool rename(const Pathname &from, const Pathname &to) = 0;
};

/// The system's files.
LogFileSystem &systemLogFiles();

} // namespace velmox
