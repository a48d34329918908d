#pragma once

#include "pipeline/input/check/check.h"

#include <optional>

namespace velmox {

/// What `velmoxd check` is told on its command line.
struct CheckOptions
{
    bool json = false;
    /// Warnings count.
    bool strict = false;
    /// Notes are shown.
    bool notes = false;
    Str scheme = kMonitorScheme;
};

/// Nothing when the arguments make no sense.
std::optional<CheckOptions> readCheckOptions(const StrVector &arguments);

/// Checks the stanzas of `inputs.conf` and prints what is found to standard output. `request` has the scheme
/// of the options. The exit code: 2 with an error or when standard output can't be written, else 1 with a
/// warning that counts, else 0. Main thread.
int runCheck(const CheckOptions &options, CheckRequest request);

} // namespace velmox
