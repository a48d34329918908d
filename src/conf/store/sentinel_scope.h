#pragma once

#include "conf/root/bundles_setup.h"
#include "util/text/str.h"

namespace velmox {

/// Keeps other hosts from changing shared storage for a scope. Without shared storage it does nothing.
///
/// Throws `ConfPathException` when the lock cannot be had in time.
class SentinelScope
{
public:
    /// `purpose` goes into the sentinel file where lock logging is on.
    SentinelScope(const BundlesSetup &setup, const Str &purpose);
    SentinelScope(const SentinelScope &) = delete;
    SentinelScope &operator=(const SentinelScope &) = delete;
    ~SentinelScope();

private:
    Pathname locked_; ///< empty when nothing is
};

} // namespace velmox
