#pragma once

#include "util/log/log_layout.h"
#include "util/text/pathname.h"

#include <mutex>
#include <vector>

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

/// What went wrong inside the logging system itself, ready to be logged.
struct LogReport
{
    LogLevel level;
    Str text;
};
using LogReports = std::vector<LogReport>;

class LogAppender;

/// Appenders that failed while one message was on its way, innermost first. What is reported about them is
/// not sent to any of them again.
struct FailedAppenders
{
    const LogAppender *appender = nullptr;
    const FailedAppenders *outer = nullptr;

    bool contains(const LogAppender *candidate) const
    {
        return appender == candidate || (outer && outer->contains(candidate));
    }
};

/// A destination of log lines: a file that rolls by size, or standard error when it has no file name.
///
/// `append` may be called from any thread; everything else belongs to the loading of the configuration. What
/// fails is told by reports, which the caller logs when no lock is held, to other appenders than this one.
/// The lock is the library's plain one and not a `Mutex`: a `Mutex` that fails logs, and costs a system call.
class LogAppender
{
public:
    /// `files` serves file names; with none an appender can only write to standard error.
    LogAppender(Str name, LogFileSystem *files);

    /// Writes the line of one message; whether it was written whole.
    bool append(const LogRecord &record, StrSegment message, LogReports &reports);

    /// Opens the file and closes it again, to surface errors before the first message.
    void tryOpen(LogReports &reports);

    /// Back to standard error, the plain layout and no limits.
    void reset(LogFileSystem *files);
    /// Takes nothing from here on; for an appender without a file where standard error is not allowed.
    void disable() { disabled_ = true; }
    /// The next line opens the file again.
    void close();

    /// Sets one property from a configuration; false when there is none of this name or the value is bad,
    /// with everything as it was.
    bool setProperty(StrSegment property, const Str &value);

    const Str &name() const { return name_; }
    bool hasFile() const { return !fileName_.empty(); }
    const Pathname &fileName() const { return fileName_; }
    /// 0 means no limit.
    std::uint64_t maximumSize() const { return maximumSize_; }
    void clearMaximumSize() { maximumSize_ = 0; }
    std::uint32_t maximumBackupIndex() const { return maximumBackupIndex_; }
    void clearMaximumBackupIndex() { maximumBackupIndex_ = 0; }

private:
    bool setLayout(const Str &name);
    bool open(LogReports &reports);
    bool write(const Str &line, LogReports &reports);
    bool writeToFile(const Str &line, LogReports &reports);
    void roll(LogReports &reports);
    std::uint32_t freeBackup(LogReports &reports);
    void removeLast(const Pathname &path, LogReports &reports);
    Pathname backupName(std::uint32_t index) const;

    const Str name_;
    LogFileSystem *files_;
    bool disabled_ = false;
    Pathname fileName_;
    std::uint64_t maximumSize_ = 0;
    std::uint32_t maximumBackupIndex_ = 0;
    std::shared_ptr<const LogLayout> layout_ = LogLayout::plain();
    /// The last pattern given to this appender; "PatternLayout" goes back to it.
    std::shared_ptr<const LogLayout> patternLayout_ = LogLayout::plain();

    std::mutex lock_;
    /// Guarded by `lock_`, as is the size.
    std::unique_ptr<LogFile> file_;
    std::uint64_t currentSize_ = 0;
};

} // namespace velmox
