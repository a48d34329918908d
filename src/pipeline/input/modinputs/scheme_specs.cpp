#include "pipeline/input/modinputs/scheme_specs.h"

#include "conf/ini_file.h"
#include "util/file_system.h"
#include "util/owned_handle.h"

#include <algorithm>

namespace velmox {

namespace {

struct FileSearchTraits
{
    using Type = HANDLE;
    static Type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(Type handle) { FindClose(handle); }
};
using FileSearch = OwnedHandle<FileSearchTraits>;

/// Names that begin with a point are no apps.
StrVector namesOfFolders(const Pathname &parent)
{
    StrVector names;
    WIN32_FIND_DATAW entry;
    const FileSearch search(FindFirstFileW(asWide(parent.join("*")), &entry));
    if (!search.isValid()) {
        return names;
    }
    do {
        const Str name = Str::fromUtf16(asUtf16(entry.cFileName));
        const bool isFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (isFolder && !name.startsWith(".")) {
            names.push_back(name);
        }
    } while (FindNextFileW(search.get(), &entry));
    std::sort(names.begin(), names.end());
    return names;
}

SchemeSpec makeSpec(const Str &name, const AppFolder &app, const IniStanza &stanza)
{
    SchemeSpec spec{name, app, {}};
    for (const IniStanza::Setting &setting : stanza) {
        if (!setting.key.starts_with('*')) {
            spec.parameters.emplace(setting.key);
        }
    }
    return spec;
}

} // namespace

std::vector<AppFolder> appFolders(const Pathname &confDir)
{
    std::vector<AppFolder> folders = {{AppFolder::kSystem, confDir.join(AppFolder::kSystem)}};
    const Pathname apps = confDir.join("apps");
    for (const Str &name : namesOfFolders(apps)) {
        folders.push_back({name, apps.join(name)});
    }
    return folders;
}

std::vector<SchemeSpec> readSchemeSpecs(const AppFolder &app)
{
    std::vector<SchemeSpec> specs;
    const IniFile file(app.path.join("README").join("inputs.conf.spec"));
    for (const auto &[stanzaName, stanza] : file) {
        const std::size_t end = stanzaName.find("://");
        if (end != Str::npos && end != 0) {
            specs.push_back(makeSpec(stanzaName.substr(0, end), app, stanza));
        }
    }
    return specs;
}

} // namespace velmox
