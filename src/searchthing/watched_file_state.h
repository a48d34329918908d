#pragma once

#include "searchthing/file_status.h"
#include "util/time/timeout.h"

namespace velmox {

class FilesystemChangeWatcher;

/// Spreads the looks at many files over time: a sequence of pseudo-random numbers of milliseconds, 0 to 2047.
class PollJitter
{
public:
    std::uint64_t next()
    {
        x_ = (x_ * 1103515245u + 12345u) & 0x7FFFFFFFu;
        return x_ >> 10 & 0x7FFu;
    }

private:
    std::uint32_t x_ = 0;
};

/// A file that is looked at from time to time.
class WatchedFileState : public Timeout
{
public:
    static constexpr std::uint64_t kPollMs = 30000;
    /// After this time a file is looked at again that may not have reached its final form.
    static constexpr std::uint64_t kSettleMs = 4200;

    /// The file counts as changed when it is not found as `known`.
    WatchedFileState(FilesystemChangeWatcher &watcher, const Pathname &path, const FileStatus &known,
                     std::uint64_t pollMs);

    const Pathname &path() const { return path_; }
    /// As it was at the last look.
    const FileStatus &status() const { return status_; }
    bool fileExists() const { return status_.exists; }
    /// Whether the last two looks saw the same.
    bool isQuiet() const { return quiet_; }
    /// Whether a program has the file open for writing.
    bool isBeingWritten() const;

private:
    void expire() override;

    FilesystemChangeWatcher &watcher_;
    const Pathname path_;
    const std::uint64_t pollMs_;
    FileStatus status_;
    bool quiet_ = true;
    bool settled_ = true;
};

} // namespace velmox
