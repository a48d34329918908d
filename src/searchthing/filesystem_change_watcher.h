#pragma once

#include "searchthing/watched_file_state.h"
#include "util/time/timeout.h"

#include <map>
#include <memory>
#include <vector>

namespace velmox {

/// Looks at the files below some directories from time to time. It has no thread: the event loop that owns it
/// calls `runDue`.
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
    void walk(const Pathname &directory, bool isKnown);

    /// Whether a file is to be watched.
    virtual bool wants(const Pathname &) { return true; }
    virtual std::unique_ptr<WatchedFileState> makeState(const Pathname &path, const FileStatus &known);
    /// Told of a file that changed, and again while the answer is that it is not settled.
    virtual bool handleChange(WatchedFileState &state) = 0;

    TimeoutQueue queue_;
    PollJitter jitter_;
    std::vector<Pathname> directories_;
    /// Null for files that are not watched.
    std::map<Pathname, std::unique_ptr<WatchedFileState>> states_;
    std::unique_ptr<Walk> walk_;
};

} // namespace velmox
