#include "conf/store/conf_change_watcher.h"

#include "conf/root/conf_settings.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("ConfChangeWatcher");

} // namespace

ConfChangeWatcher::ConfChangeWatcher(ConfPathMapperManager &mappers, Clock &clock)
    : FilesystemChangeWatcher(clock), mappers_(mappers), setup_(mappers.setup())
{
    for (const Pathname &directory : {setup_.systemDir(), setup_.appsDir(), setup_.slaveAppsDir(),
                                      setup_.usersDir(), setup_.bundlesDir()}) {
        watch(directory);
    }
}

bool ConfChangeWatcher::wants(const Pathname &path)
{
    const bool blacklisted = mappers_.settings().isBlacklisted(path);
    log.debug(blacklisted ? "Not watching blacklisted path for updates: %s" : "Watching path for updates: %s",
              setup_.text(path).c_str());
    return !blacklisted;
}

std::unique_ptr<WatchedFileState> ConfChangeWatcher::makeState(const Pathname &path, const FileStatus &known)
{
    return std::make_unique<WatchedConfState>(*this, path, known, mappers_.settings().checkPollMs());
}

bool ConfChangeWatcher::handleChange(WatchedFileState &state)
{
    const Str name = setup_.text(state.path());
    log.debug("%s: Possible file change", name.c_str());
    const bool settled = tellMapper(static_cast<WatchedConfState &>(state), name);
    if (!settled) {
        log.debug("%s: Deferring because: %s", name.c_str(),
                  state.isQuiet() ? "quiescing" : "change detected");
    }
    log.debug("%s: Handled change notification", name.c_str());
    return settled;
}

/// Whether the change is settled. A file that no mapper serves is. One that is being written is looked at
/// again later, rather than read in halves.
bool ConfChangeWatcher::tellMapper(WatchedConfState &state, const Str &name)
{
    log.debug("%s: Looking up mapper", name.c_str());
    // Read in the midst of a write, a file gives half of its settings for all.
    if (state.fileExists() && state.isBeingWritten()) {
        return false;
    }
    if (!state.mapper_) {
        state.mapper_ = mappers_.mapperFor(state.path());
    }
    if (!state.mapper_) {
        return true;
    }
    log.debug("%s: Sending change notification to mapper: %s", name.c_str(),
              state.mapper_->describe().c_str());
    const FileChangeAnswer answer = state.mapper_->onFileChange(state);
    // "No change" of a file that has only just changed may mean that the mapper saw the first half of it.
    return answer == FileChangeAnswer::Settled ||
           (answer == FileChangeAnswer::NoChange && state.fileExists() && state.isQuiet());
}

} // namespace velmox
