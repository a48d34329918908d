#pragma once

#include "util/text/pathname.h"
#include "util/text/str.h"

#include <optional>
#include <set>

namespace velmox {

/// What a run leaves out of the configuration store, or keeps elsewhere. A program sets this before its first
/// use of the store; the defaults leave nothing out.
struct InitSettings
{
    /// The only user, besides "nobody", whose configuration is read.
    std::optional<Str> user;
    /// The only apps whose configuration is read.
    std::optional<std::set<Str>> apps;
    /// Only what is needed before the program is set up: no user's own data, and of the apps but "system"
    /// only the conf files.
    bool minimal = false;
    /// Changes are not written to disk.
    bool inMemoryOnly = false;
    /// Stands in for the configured root of shared storage; empty for none.
    Pathname storage;
};

} // namespace velmox
