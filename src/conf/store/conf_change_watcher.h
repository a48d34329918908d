#pragma once

#include "conf/root/bundles_setup.h"
#include "searchthing/filesystem_change_watcher.h"

namespace velmox {

class ConfPathMapperManager;
class IConfPathMapper;

/// A file of the configuration store that is looked at.
class WatchedConfState : public WatchedFileState
{
public:
    using WatchedFileState::WatchedFileState;

private:
    friend class ConfChangeWatcher;
    /// Found with the first notice, and looked for again with each while there is none: a mapper may come
    /// later.
    IConfPathMapper *mapper_ = nullptr;
};

/// Tells mappers of the files of a root that other programs changed, once nobody writes to them any more.
/// For programs that have to follow such changes; the monitor starts none, since it reads its settings once.
///
/// One thread, which calls `runDue` again and again, and sleeps in between for as long as that says; mappers
/// take their own locks. To see whether a file is being written it is opened for a moment so that nobody can
/// write: a write of this very moment fails.
class ConfChangeWatcher : public FilesystemChangeWatcher
{
public:
    /// All that is given outlives this object.
    ConfChangeWatcher(ConfPathMapperManager &mappers, Clock &clock);

private:
    /// False for what the settings say not to poll.
    bool wants(const Pathname &path) override;
    std::unique_ptr<WatchedFileState> makeState(const Pathname &path, const FileStatus &known) override;
    bool handleChange(WatchedFileState &state) override;
    bool tellMapper(WatchedConfState &state, const Str &name);

    ConfPathMapperManager &mappers_;
    const BundlesSetup setup_;
};

} // namespace velmox
