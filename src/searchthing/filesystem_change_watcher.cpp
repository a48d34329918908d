#include "searchthing/filesystem_change_watcher.h"

#include "util/files/file_system.h"
#include "util/system/owned_handle.h"

#include <algorithm>

namespace velmox {

/// Looks once a millisecond at most: with an interval of 0 the file would be due again at once, and a loop
/// that expires all that is due would not end while the clock stands still.
WatchedFileState::WatchedFileState(FilesystemChangeWatcher &watcher, const Pathname &path,
                                   const FileStatus &known, std::uint64_t pollMs)
    : Timeout(watcher.queue()), watcher_(watcher), path_(path), pollMs_(std::max<std::uint64_t>(pollMs, 1)),
      status_(known)
{
    scheduleIn(pollMs_);
}

bool WatchedFileState::isBeingWritten() const
{
    // Without a share for writing the system refuses us while somebody has the file open for that.
    const FileHandle reader(CreateFileW(asWide(path_), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const DWORD error = GetLastError();
    return !reader.isValid() && error == ERROR_SHARING_VIOLATION;
}

void WatchedFileState::expire()
{
    const FileStatus current = FileStatus::of(path_);
    // Size and time stand for the content, which is left to whoever is told.
    quiet_ = current == status_;
    status_ = current;
    // A change that was not settled is told again even if nothing changed since.
    if (!quiet_ || !settled_) {
        settled_ = watcher_.handleChange(*this);
    }
    scheduleIn(settled_ ? pollMs_ : kSettleMs);
}

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
        // Of one that is not wanted an empty entry stays, so that it is asked about once. Entries are never
        // removed: a file that goes and comes again is a change of the same state.
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
