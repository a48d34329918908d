#pragma once

#include "conf/root/bundles_setup.h"
#include "searchthing/filesystem_change_watcher.h"

namespace velmox {

class IConfPathMapper;

/// A file of the configuration store that is looked at.
class WatchedConfState : public WatchedFileState
{
public:
    using WatchedFileState::WatchedFileState;

private:
    friend class ConfChangeWatcher;
    /// Found with the first notice.
    IConfPathMapper *mapper_ = nullptr;
};

/// Tells mappers of the files of a root that other programs changed. The monitor starts none.
class ConfChangeWatcher : public FilesystemChangeWatcher
{
public:
    ConfChangeWatcher(const BundlesSetup &setup, Clock &clock);

private:
    bool wants(const Pathname &path) override;
    std::unique_ptr<WatchedFileState> makeState(const Pathname &path, const FileStatus &known) override;
    bool handleChange(WatchedFileState &state) override;
    bool tellMapper(WatchedConfState &state, const Str &name);

    const BundlesSetup setup_;
};

} // namespace velmox
