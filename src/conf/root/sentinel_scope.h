#pragma once

#include "conf/root/bundles_setup.h"
#include "util/text/str.h"

namespace velmox {

class ConfSettings;

/// Keeps other hosts from changing shared storage for a scope. Without shared storage it does nothing, and so
/// does a scope within another of the same thread and root.
///
/// Throws `ConfPathException` when the lock cannot be had in time.
class SentinelScope
{
public:
    /// `purpose` goes into the sentinel file where lock logging is on.
    SentinelScope(const BundlesSetup &setup, const ConfSettings &settings, const Str &purpose);
    SentinelScope(const SentinelScope &) = delete;
    SentinelScope &operator=(const SentinelScope &) = delete;
    ~SentinelScope();

private:
    SentinelScope() = default;

    Pathname locked_; ///< empty when nothing is
};

} // namespace velmox
