#pragma once

#include "conf/root/bundles_setup.h"
#include "util/text/str.h"

namespace velmox {

/// Who reads: in which root, as which user, in which app. Empty texts stand for none.
struct ConfContext
{
    BundlesSetup setup;
    Str user;
    Str app;

    /// Whether this is a reader for `LegacyPropertyPages`.
    bool isPlain() const { return user.empty() && app.empty(); }
    /// "(user: alice, app: search, root: $VELMOX_HOME\etc)".
    Str toStr() const;
    auto operator<=>(const ConfContext &) const = default;
};

} // namespace velmox
