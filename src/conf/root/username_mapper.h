#pragma once

#include "conf/file/ini_file.h"
#include "conf/ground/conf_lock.h"
#include "conf/root/bundles_setup.h"
#include "util/log/log_level.h"

namespace velmox {

/// Names of users that cannot be names of directories, and the safe names that stand for them on disk. Kept
/// in `users.ini`. Any thread.
class UsernameMapper
{
public:
    /// Directory below the users directory that holds the directories of the safe names.
    static constexpr char kMappingDirectory[] = "_reserved";

    explicit UsernameMapper(const BundlesSetup &setup);

    /// Whether the name cannot be a directory's.
    static bool needsMapping(const Str &name);
    /// The safe name that `name` would get, in lower case. Throws BaseException when the digest in it cannot
    /// be made.
    static Str makeSafeName(const Str &name);

    /// The name of a user's directory below the users directory: the name itself, or the mapping directory, a
    /// slash and the safe name, which is recorded on first use; empty when that fails. Throws
    /// ConfPathException when shared storage cannot be locked.
    Str directoryName(const Str &user);
    /// The true name behind a safe name; false when it is not recorded.
    bool trueName(const Str &safeName, Str &out);

private:
    // To be called with the lock held.
    bool ensureLoaded();
    void load();
    bool findSafeName(const Str &user, Str &out);
    bool lookUpTrueName(const Str &safeName, Str &out, LogLevel level);
    const IniStanza *mappings(LogLevel level);
    bool insert(const Str &user, const Str &safeName);

    bool record(const Str &user, Str &safeName);
    bool isSharedStorage() const;
    Str fileText() const;

    const BundlesSetup setup_;
    ConfLock lock_{ConfLockRank::UsernameMap};
    IniFile file_;
    /// Whether `file_` can be worked with.
    bool loaded_ = false;
};

} // namespace velmox
