#pragma once

#include "conf/tree/properties_map.h"

#include <functional>
#include <optional>

namespace velmox {

/// What a command of this room puts on standard output, and its exit code.
struct ExplainAnswer
{
    int exitCode = 0;
    Str output;
    /// For standard error, in whole lines.
    Str remarks;
};

/// `pattern PATH [--wow64]`: the line of a stanza for a path. Nothing when the arguments make no sense;
/// throws ExplainException. Main thread, as the next one.
std::optional<ExplainAnswer> answerPattern(const StrVector &arguments);

/// `explain`: what the monitor makes of an operation. `stanzas` is asked for the stanzas of the input
/// document once the arguments are read. The exit code is 0 for an event and 1 for none. Nothing when the
/// arguments make no sense; throws ExplainException.
std::optional<ExplainAnswer> answerExplain(const StrVector &arguments,
                                           const std::function<Stanzas()> &stanzas);

} // namespace velmox
