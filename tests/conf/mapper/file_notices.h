#pragma once

#include "conf/mapper/i_conf_path_mapper.h"
#include "searchthing/filesystem_change_watcher.h"
#include "util/clock.h"

namespace velmox::testing {

/// Tells a mapper that a file changed.
class FileNotices : private FilesystemChangeWatcher
{
public:
    FileNotices() : FilesystemChangeWatcher(Clock::system()) {}

    FileChangeAnswer tell(IConfPathMapper &mapper, const Pathname &path)
    {
        WatchedFileState state(*this, path, {}, WatchedFileState::kPollMs);
        return mapper.onFileChange(state);
    }

private:
    bool handleChange(WatchedFileState &) override { return true; }
};

} // namespace velmox::testing
