#include "pipeline/input/modinputs/script_locator.h"

#include "pipeline/input/diagnostics/modular_inputs_log.h"
#include "util/files/file_system.h"

namespace velmox {

namespace {

// Behind the name: as it stands, a program, a script of Python's.
constexpr const char *kEndings[] = {"", ".exe", ".py"};

/// The first candidate that is a regular file, or the empty path.
Pathname findIn(const Pathname &folder, const StrVector &names)
{
    for (const Str &name : names) {
        const Pathname file = folder.join(name);
        if (pathKind(file) == PathKind::File) {
            return file;
        }
        modularInputsLog.debug("No regular file=\"%s\".", file.toStr().c_str());
    }
    modularInputsLog.debug("No script found in dir=\"%s\"", folder.toStr().c_str());
    return {};
}

} // namespace

ScriptCandidates::ScriptCandidates(const ScriptName &script) : arguments(script.arguments)
{
    for (const char *ending : kEndings) {
        names.push_back(Str::concat(script.file, ending));
    }
}

ScriptCommand locateScript(const AppFolder &app, const Str &scheme, const ScriptCandidates &candidates,
                           const Pathname &home)
{
    const Pathname folders[] = {
        app.path.join("windows_x86_64").join("bin"),
        app.path.join("bin"),
        home.join("bin").join("scripts"),
    };
    for (const Pathname &folder : folders) {
        const Pathname file = findIn(folder, candidates.names);
        if (!file.empty()) {
            const ScriptCommand script{file, candidates.arguments};
            modularInputsLog.debug("Found script \"%s\" to handle scheme \"%s\".", script.text().c_str(),
                                   scheme.c_str());
            return script;
        }
    }
    modularInputsLog.log(app.isSystem() ? LogLevel::Debug : LogLevel::Error,
                         "No script to handle scheme \"%s\" was found.  This modular input will be disabled.",
                         scheme.c_str());
    return {};
}

} // namespace velmox
