#include "searchthing/filesystem_change_watcher.h"

#include "util/files/directory_listing.h"

namespace velmox {

/// Finds files that are new.
class FilesystemChangeWatcher::Walk : public Timeout
{
public:
    explicit Walk(FilesystemChangeWatcher &watcher) : Timeout(watcher.queue()), watcher_(watcher)
    {
        scheduleIn(WatchedFileState::kPollMs);
    }

private:
    void expire() override
    {
        for (const Pathname &directory : watcher_.directories_) {
            watcher_.walk(directory, false);
        }
        scheduleIn(WatchedFileState::kPollMs);
    }

    FilesystemChangeWatcher &watcher_;
};

FilesystemChangeWatcher::FilesystemChangeWatcher(Clock &clock)
    : queue_(clock), walk_(std::make_unique<Walk>(*this))
{
}

FilesystemChangeWatcher::~FilesystemChangeWatcher() = default;

void FilesystemChangeWatcher::watch(const Pathname &directory)
{
    directories_.push_back(directory);
    walk(directory, true);
}

/// A file that is found later is looked at soon: for its state it was not there.
void FilesystemChangeWatcher::walk(const Pathname &directory, bool isKnown)
{
    std::vector<DirectoryEntry> entries;
    listDirectory(directory, entries);
    for (const DirectoryEntry &entry : entries) {
        const Pathname path = directory.join(Pathname(entry.name));
        if (entry.isFolder) {
            walk(path, isKnown);
            continue;
        }
        const auto [state, added] = states_.try_emplace(path);
        if (added && wants(path)) {
            state->second =
                makeState(path, isKnown ? FileStatus{true, entry.size, entry.modtime} : FileStatus());
            if (!isKnown) {
                state->second->scheduleIn(0);
            }
        }
    }
}

std::unique_ptr<WatchedFileState> FilesystemChangeWatcher::makeState(const Pathname &path,
                                                                     const FileStatus &known)
{
    return std::make_unique<WatchedFileState>(*this, path, known, WatchedFileState::kPollMs + jitter_.next());
}

} // namespace velmox
