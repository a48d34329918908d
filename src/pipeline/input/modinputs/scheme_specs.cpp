#include "pipeline/input/modinputs/scheme_specs.h"

#include "conf/file/ini_file.h"
#include "util/files/directory_listing.h"
#include "util/files/file_system.h"

#include <algorithm>

namespace velmox {

namespace {

/// In byte order. Names that begin with a point are no apps, and the system's name is taken.
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
        if (!setting.key.starts_with('*')) {
            parameters.emplace(setting.key);
        }
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
    if (pathKind(path) == PathKind::Nothing) {
        return {};
    }
    std::vector<SchemeSpec> specs;
    const IniFile file(path);
    for (const auto &[stanzaName, stanza] : file) {
        const std::size_t end = stanzaName.find("://");
        if (end != Str::npos && end != 0) {
            addParameters(stanza, specNamed(stanzaName.substr(0, end), app, specs).parameters);
        }
    }
    return specs;
}

} // namespace velmox
