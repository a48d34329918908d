#pragma once

#include "pipeline/input/modinputs/scheme.h"

namespace velmox {

/// The file names under which a script may stand, in the order in which they are tried, and the arguments
/// that it gets.
struct ScriptCandidates
{
    explicit ScriptCandidates(const ScriptName &script);

    StrVector names;
    Str arguments;
};

/// Finds the script of a scheme: in the app's folder for programs of this platform, in the app's `bin`, and
/// in the installation's folder for scripts, in this order. The empty command if it stands nowhere.
ScriptCommand locateScript(const AppFolder &app, const Str &scheme, const ScriptCandidates &candidates,
                           const Pathname &home);

} // namespace velmox
