#pragma once

#include "pipeline/input/modinputs/scheme.h"

#include <vector>

// Where schemes stand on disk: the folders that may define them, their spec files, their scripts and what the
// scripts keep.
namespace velmox {

/// The folders that may define schemes: the system's first, then the apps' of each parent by the byte order
/// of their names.
std::vector<AppFolder> appFolders(const Pathname &systemDir, const std::vector<Pathname> &appParents);

/// The schemes that a folder's README\inputs.conf.spec defines, in the order of the file; none without it.
///
/// A scheme is what stands before `://` in the names of stanzas, and its parameters are the keys of them all.
/// Lines of description, which begin with an asterisk, are no keys.
std::vector<SchemeSpec> readSchemeSpecs(const AppFolder &app);

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

/// The folder in which a scheme's script keeps what it has to remember, below `modinputs` in the database
/// folder. Made if it isn't there; only its owner may look into it then.
///
/// Throws ModularInputsException if it cannot be made, or is no folder that can be read and written.
Pathname checkpointFolder(const Pathname &db, const Str &scheme);

} // namespace velmox
