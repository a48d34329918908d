#pragma once

#include "conf/root/bundles_setup.h"
#include "util/text/str.h"

namespace velmox {

class UsernameMapper;

/// Whose configuration stands at a path. The same for each file below one directory that a mapper serves.
struct PathOwner
{
    /// "nobody" for what all users share. Empty when only the safe name of the user is known.
    Str user;
    Str app;
    /// The directory of the app, or of the user's app; of the system, or of a bundle.
    Pathname rootDirectory;
};

/// Tells the owner from where the path lies; it need not exist. False when it lies in none of the places of
/// configuration. Both outcomes are logged.
bool findPathOwner(const BundlesSetup &setup, UsernameMapper &users, const Pathname &path, PathOwner &owner);

/// Whether this run leaves a path out, or an app stands in for the bundle in which it lies. The reason is
/// logged.
bool isPathLeftOut(const BundlesSetup &setup, const Pathname &path, const Str &handler,
                   const PathOwner &owner);

} // namespace velmox
