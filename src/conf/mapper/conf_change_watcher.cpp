#include "conf/mapper/conf_change_watcher.h"

#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/conf_settings.h"
#include "conf/store/shared_conf_services.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("ConfChangeWatcher");

} // namespace

ConfChangeWatcher::ConfChangeWatcher(const BundlesSetup &setup, Clock &clock)
    : FilesystemChangeWatcher(clock), setup_(setup)
{
    for (const Pathname &directory :
         {setup.systemDir(), setup.appsDir(), setup.slaveAppsDir(), setup.usersDir(), setup.bundlesDir()}) {
        watch(directory);
    }
}

bool ConfChangeWatcher::wants(const Pathname &path)
{
    const bool blacklisted = setup_.shared().settings().isBlacklisted(path);
    log.debug(blacklisted ? "Not watching blacklisted path for updates: %s" : "Watching path for updates: %s",
              setup_.text(path).c_str());
    return !blacklisted;
}

std::unique_ptr<WatchedFileState> ConfChangeWatcher::makeState(const Pathname &path, const FileStatus &known)
{
    return std::make_unique<WatchedConfState>(*this, path, known, setup_.shared().settings().checkPollMs());
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

/// Whether the change is settled. A file that no mapper serves is.
bool ConfChangeWatcher::tellMapper(WatchedConfState &state, const Str &name)
{
    log.debug("%s: Looking up mapper", name.c_str());
    if (state.fileExists() && state.isBeingWritten()) {
        return false;
    }
    if (!state.mapper_) {
        state.mapper_ = setup_.shared().mappers().mapperFor(state.path());
    }
    if (!state.mapper_) {
        return true;
    }
    log.debug("%s: Sending change notification to mapper: %s", name.c_str(),
              state.mapper_->describe().c_str());
    const FileChangeAnswer answer = state.mapper_->onFileChange(state);
    return answer == FileChangeAnswer::Settled ||
           (answer == FileChangeAnswer::NoChange && state.fileExists() && state.isQuiet());
}

} // namespace velmox
