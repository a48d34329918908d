#pragma once

#include "searchthing/osfile.h"
#include "util/time/timeout.h"

#include <map>
#include <memory>
#include <vector>

namespace velmox {

class FilesystemChangeWatcher;

/// Spreads the looks at many files over time, so that they don't all fall on one moment: a sequence of
/// pseudo-random numbers of milliseconds, 0 to 2047. Multiplier and increment are those of the C standard's
/// example for `rand`; nothing depends on the quality of the numbers.
class PollJitter
{
public:
    // The low bits of such a sequence repeat after a few steps, so these are taken from the middle.
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
    /// Whether a program has the file open for writing. Opens it for a moment, in which nobody can begin to
    /// write.
    bool isBeingWritten() const;

private:
    void expire() override;

    FilesystemChangeWatcher &watcher_;
    const Pathname path_;
    const std::uint64_t pollMs_;
    FileStatus status_;
    bool quiet_ = true;
    /// Whether the last change that was seen is done with.
    bool settled_ = true;
};

/// Looks at the files below some directories from time to time, rather than to wait for notices of the
/// system, which not every network share sends. It has no thread: the event loop that owns it calls
/// `runDue`.
class FilesystemChangeWatcher
{
public:
    explicit FilesystemChangeWatcher(Clock &clock);
    FilesystemChangeWatcher(const FilesystemChangeWatcher &) = delete;
    FilesystemChangeWatcher &operator=(const FilesystemChangeWatcher &) = delete;
    virtual ~FilesystemChangeWatcher();

    /// Watches the files in a directory, which need not exist, and in those below it. What is there counts as
    /// known; what comes later, as changed.
    void watch(const Pathname &directory);
    /// Looks at what is due. Returns the milliseconds to the next look.
    std::uint64_t runDue() { return queue_.runDue(); }

private:
    friend class WatchedFileState;
    class Walk;

    TimeoutQueue &queue() { return queue_; }
    /// Enters the files that are not known yet; `isKnown` says that they are not to count as new.
    void walk(const Pathname &directory, bool isKnown);

    /// Whether a file is to be watched.
    virtual bool wants(const Pathname &) { return true; }
    virtual std::unique_ptr<WatchedFileState> makeState(const Pathname &path, const FileStatus &known);
    /// Told of a file that changed, and again while the answer is that it is not settled.
    virtual bool handleChange(WatchedFileState &state) = 0;

    // First, since the states and the walk, which stand in it, take themselves off when they are destroyed.
    TimeoutQueue queue_;
    PollJitter jitter_;
    std::vector<Pathname> directories_;
    /// Null for files that are not watched.
    std::map<Pathname, std::unique_ptr<WatchedFileState>> states_;
    std::unique_ptr<Walk> walk_;
};

} // namespace velmox
