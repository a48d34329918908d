#include "searchthing/watched_file_state.h"

#include "searchthing/filesystem_change_watcher.h"
#include "util/system/owned_handle.h"

#include <algorithm>

namespace velmox {

WatchedFileState::WatchedFileState(FilesystemChangeWatcher &watcher, const Pathname &path,
                                   const FileStatus &known, std::uint64_t pollMs)
    : Timeout(watcher.queue()), watcher_(watcher), path_(path), pollMs_(std::max<std::uint64_t>(pollMs, 1)),
      status_(known)
{
    scheduleIn(pollMs_);
}

bool WatchedFileState::isBeingWritten() const
{
    const FileHandle reader(CreateFileW(asWide(path_), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const DWORD error = GetLastError();
    return !reader.isValid() && error == ERROR_SHARING_VIOLATION;
}

void WatchedFileState::expire()
{
    const FileStatus current = FileStatus::of(path_);
    quiet_ = current == status_;
    status_ = current;
    if (!quiet_ || !settled_) {
        settled_ = watcher_.handleChange(*this);
    }
    scheduleIn(settled_ ? pollMs_ : kSettleMs);
}

} // namespace velmox
