#pragma once

#include "pipeline/input/modinputs/introspection.h"
#include "pipeline/input/modinputs/scheme.h"

#include <functional>

namespace velmox {

/// Looks for the script that an introspection's `script` names.
using ScriptFinder = std::function<ScriptCommand(const ScriptName &script)>;

/// Brings what a script says of itself into its scheme, which holds what the file of its parameters says.
/// What the script leaves out, or leaves empty, stays as it is.
///
/// Throws ModularInputsException at what it may not say.
void mergeIntrospection(const Introspection &introspection, const SchemeSpec &spec,
                        const ScriptFinder &findScript, Scheme &scheme);

} // namespace velmox
