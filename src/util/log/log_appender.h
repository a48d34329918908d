#pragma once

#include "util/log/log_file.h"
#include "util/log/log_layout.h"

#include <mutex>
#include <vector>

namespace velmox {

/// What went wrong inside the logging system itself, ready to be logged.
struct LogReport
{
    LogLevel level;
    Str text;
};
using LogReports = std::vector<LogReport>;

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
    void disable() { disabled_ = true; }
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
