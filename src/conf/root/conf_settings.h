#pragma once

#include "conf/file/ini_file.h"
#include "conf/root/bundles_setup.h"
#include "util/match/regex.h"

#include <memory>
#include <vector>

namespace velmox {

/// Whether this run writes no change of the configuration to disk.
bool isInMemoryOnly();

/// The bootstrap file of a root and the settings in it. Read-only once made; any thread.
class ConfSettings
{
public:
    explicit ConfSettings(const BundlesSetup &setup);

    /// Not loaded when there is no bootstrap file at all.
    const IniFile &image() const { return image_; }
    /// A stanza that must be there; null, with an error in the log, when it is not.
    const IniStanza *requiredStanza(const char *name) const;

    /// Whether several hosts keep apps and users in common.
    bool isSharedStorageMode() const { return sharedStorage_; }
    /// Empty outside that mode.
    const Pathname &storage() const { return storage_; }
    /// How long a file lock may be waited for.
    std::uint64_t lockTimeoutMs() const { return lockTimeoutMs_; }
    /// Whether writes to shared storage are noted in the sentinel file.
    bool lockLogging() const { return lockLogging_; }
    /// How often a cache looks for changes; 0, never, outside shared storage mode.
    std::uint64_t rebuildPollMs() const { return rebuildPollMs_; }
    /// How often the file watcher looks at a file.
    std::uint64_t checkPollMs() const { return checkPollMs_; }
    /// Whether the whole path matches one of the patterns of what is not to be watched.
    bool isBlacklisted(const Pathname &path) const;
    Str appUpdateTriggers() const;
    /// Whether metadata of this app may stand without data.
    bool allowsDangling(const Str &app) const;
    bool searchUsesAllApps() const;

private:
    void loadImage();
    void readBlacklist();
    void readStorage();
    void readTimes();
    /// The empty text when it is not there.
    Str setting(const char *stanzaName, const Str &key) const;

    const BundlesSetup setup_;
    IniFile image_;
    std::vector<std::unique_ptr<Regex>> blacklist_;
    bool sharedStorage_ = false;
    Pathname storage_;
    // Defaults, in milliseconds.
    std::uint64_t lockTimeoutMs_ = 10000;
    bool lockLogging_ = false;
    std::uint64_t rebuildPollMs_ = 0;
    std::uint64_t checkPollMs_ = 30000;
};

/// What the shared storage says of itself. Read-only once made; any thread.
class SearchHeadPoolInfo
{
public:
    SearchHeadPoolInfo(const BundlesSetup &setup, const ConfSettings &settings);

    /// `pooling.ini`; not loaded without shared storage, or when there is no such file.
    const IniFile &image() const { return image_; }

private:
    IniFile image_;
};

} // namespace velmox
