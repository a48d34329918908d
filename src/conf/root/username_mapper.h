#pragma once

#include "conf/file/ini_file.h"
#include "conf/ground/conf_lock.h"
#include "conf/root/bundles_setup.h"
#include "util/log/log_message.h"

namespace velmox {

class ConfSettings;

/// Names of users that cannot be names of directories, and the safe names that stand for them on disk. Kept
/// in `users.ini`. Any thread.
class UsernameMapper
{
public:
    /// Directory below the users directory that holds the directories of the safe names.
    static constexpr char kMappingDirectory[] = "_reserved";

    /// The settings outlive this object.
    UsernameMapper(const BundlesSetup &setup, const ConfSettings &settings);

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
    /// False when none is recorded for the user.
    bool findSafeName(const Str &user, Str &out);
    bool lookUpTrueName(const Str &safeName, Str &out, LogLevel level);
    /// Null, with the reason in the log at this level, when there are none.
    const IniStanza *mappings(LogLevel level);
    bool insert(const Str &user, const Str &safeName);

    /// Gives the user a safe name, unless somebody has been quicker. To be called without the lock.
    bool record(const Str &user, Str &safeName);
    Str fileText() const;

    const BundlesSetup setup_;
    const ConfSettings &settings_;
    ConfLock lock_{ConfLockRank::UsernameMap};
    IniFile file_;
    /// Whether `file_` can be worked with.
    bool loaded_ = false;
};

} // namespace velmox
