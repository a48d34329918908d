#include "pipeline/input/modinputs/scheme_files.h"

#include "conf/file/ini_file.h"
#include "pipeline/input/diagnostics/diagnostics.h"
#include "util/files/file_system.h"
#include "util/system/owned_handle.h"

#include <algorithm>

namespace velmox {

namespace {

/// In byte order, which is the same on every host, as the first app to define a scheme has it. Names that
/// begin with a point are no apps, and the system's name is taken.
StrVector namesOfFolders(const Pathname &parent)
{
    std::vector<DirectoryEntry> entries;
    listDirectory(parent, entries);
    StrVector names;
    for (const DirectoryEntry &entry : entries) {
        const Str name = Str::fromUtf16(entry.name);
        if (entry.isFolder && !name.startsWith(".") && name != AppFolder::kSystem) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// The spec of a name, which is added at the end if there is none.
SchemeSpec &specNamed(const Str &name, const AppFolder &app, std::vector<SchemeSpec> &specs)
{
    const auto found = std::find_if(specs.begin(), specs.end(),
                                    [&name](const SchemeSpec &spec) { return spec.name == name; });
    if (found != specs.end()) {
        return *found;
    }
    specs.push_back({name, app, {}});
    return specs.back();
}

void addParameters(const IniStanza &stanza, std::set<Str> &parameters)
{
    for (const IniStanza::Setting &setting : stanza) {
        // A line of description that holds an equals sign is read as a key.
        if (!setting.key.starts_with('*')) {
            parameters.emplace(setting.key);
        }
    }
}

// What is tried behind the name: the name as it stands, a program, a script of Python's.
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

// Asked of the system by opening it, for rights alone do not tell: another process may hold the folder.
// Windows opens a folder only with the flag for backups.
bool canReadAndWrite(const Pathname &folder)
{
    const FileHandle handle(CreateFileW(asWide(folder), GENERIC_READ | GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return handle.isValid();
}

void ensureFolder(const Pathname &folder)
{
    const PathKind kind = pathKind(folder);
    if (kind == PathKind::Nothing) {
        if (!makeDirs(folder, false)) {
            ModularInputsException::raise("Unable to create directory \"%s\" (mkdir_p): %m",
                                          folder.toStr().c_str());
        }
    } else if (kind != PathKind::Folder) {
        ModularInputsException::raise("Existing path \"%s\" is expected to be a directory.",
                                      folder.toStr().c_str());
    } else if (!canReadAndWrite(folder)) {
        ModularInputsException::raise("No read-write access on directory \"%s\".", folder.toStr().c_str());
    }
}

} // namespace

std::vector<AppFolder> appFolders(const Pathname &systemDir, const std::vector<Pathname> &appParents)
{
    std::vector<AppFolder> folders = {{AppFolder::kSystem, systemDir}};
    for (const Pathname &parent : appParents) {
        for (const Str &name : namesOfFolders(parent)) {
            folders.push_back({name, parent.join(name)});
        }
    }
    return folders;
}

std::vector<SchemeSpec> readSchemeSpecs(const AppFolder &app)
{
    const Pathname path = app.path.join("README").join("inputs.conf.spec");
    // Asked first, since a file that is missing is told as an error when it is read.
    if (pathKind(path) == PathKind::Nothing) {
        return {};
    }
    std::vector<SchemeSpec> specs;
    const IniFile file(path);
    for (const auto &[stanzaName, stanza] : file) {
        const std::size_t end = stanzaName.find("://");
        // `[default]` and its like define no scheme.
        if (end != Str::npos && end != 0) {
            addParameters(stanza, specNamed(stanzaName.substr(0, end), app, specs).parameters);
        }
    }
    return specs;
}

ScriptCandidates::ScriptCandidates(const ScriptName &script) : arguments(script.arguments)
{
    for (const char *ending : kEndings) {
        names.push_back(Str::concat(script.file, ending));
    }
}

ScriptCommand locateScript(const AppFolder &app, const Str &scheme, const ScriptCandidates &candidates,
                           const Pathname &home)
{
    // What was built for this platform first: an app may bring scripts for several.
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
    // The system's spec files may describe more than an installation has; an app is to bring its own script.
    modularInputsLog.log(app.isSystem() ? LogLevel::Debug : LogLevel::Error,
                         "No script to handle scheme \"%s\" was found.  This modular input will be disabled.",
                         scheme.c_str());
    return {};
}

Pathname checkpointFolder(const Pathname &db, const Str &scheme)
{
    if (db.empty()) {
        ModularInputsException::raise("The environment variable VELMOX_DB must not be empty.");
    }
    // One after the other, as the message names the one that fails.
    const Pathname all = db.join("modinputs");
    ensureFolder(all);
    const Pathname own = all.join(scheme);
    ensureFolder(own);
    return own;
}

} // namespace velmox
