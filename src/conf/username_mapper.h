#pragma once

#include "conf/bundles_setup.h"
#include "conf/conf_lock.h"
#include "conf/ini_file.h"

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
    /// The safe name that `name` would get, in lower case.
    static Str makeSafeName(const Str &name);

    /// The name of a user's directory below the users directory: the name itself, or the mapping directory, a
    /// slash and the safe name, which is recorded on first use; empty when that fails.
    Str directoryName(const Str &user);
    /// The true name behind a safe name; false when it is not recorded.
    bool trueName(const Str &safeName, Str &out);

private:
    const BundlesSetup setup_;
    ConfLock lock_{ConfLockRank::UsernameMap};
    IniFile file_;
    bool loaded_ = false;
};

} // namespace velmox
