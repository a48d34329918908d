#pragma once

#include "conf/root/bundles_setup.h"
#include "util/text/str.h"

namespace velmox {

class UsernameMapper;

/// Whose configuration stands at a path.
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

} // namespace velmox
