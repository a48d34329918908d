#include "conf/root/bootstrap_rules.h"

#include "conf/root/conf_settings.h"
#include "conf/root/path_forms.h"
#include "conf/root/username_mapper.h"
#include "conf/tree/conf_path_base.h"
#include "util/files/file_system.h"
#include "util/process/loader_info.h"

namespace velmox {

Logger mapperManagerLog("ConfPathMapperManager");

namespace {

constexpr char kBootstrapStanza[] = "bootstrap";
constexpr char kDepthStanza[] = "relative_depth_to_regular_files";
constexpr char kWritesStanza[] = "writes";

/// Where the app is. One that is nowhere yet becomes an app of this host. The pattern keeps out "." and "..",
/// which would find a folder in any case.
Pathname appDirectory(const BundlesSetup &setup, const Str &app)
{
    const Pathname name = Pathname::fromUtf8(app);
    const Pathname slave = setup.slaveAppsDir().join(name);
    const bool isSlave = matchesNamePattern(name, u"*") && pathKind(slave) == PathKind::Folder;
    return isSlave ? slave : setup.appsDir().join(name);
}

} // namespace

PlaceholderVariables BootstrapRules::variables() const
{
    // Literally, because a dollar sign in a folder's name is no placeholder.
    const auto literal = [](const Pathname &path) { return placeholderLiteral(path.toStr()); };
    PlaceholderVariables variables = {
        {"apps-base", literal(setup_.appsDir())},
        {"apps-slave", literal(setup_.slaveAppsDir())},
        {"users-base", literal(setup_.usersDir())},
    };
    if (const std::optional<Str> &user = LoaderInfo::instance()->initSettings().user) {
        variables["user-restriction"] = placeholderLiteral(*user);
    }
    return variables;
}

PlaceholderVariables BootstrapRules::variablesFor(const ConfPathBase &path) const
{
    PlaceholderVariables result = variables();
    const Str user = path.isShared() ? Str(kSharedUser) : path.user();
    result["user"] = placeholderLiteral(user);
    // Left out where a safe name stands for the user: to ask for it could record it, and write keys that are
    // compared with this text hold true names.
    if (!UsernameMapper::needsMapping(user)) {
        result["user-case-handler"] = placeholderLiteral(user);
    }
    result["app"] = placeholderLiteral(path.app());
    result["type"] = placeholderLiteral(path.type());
    return result;
}

Pathname BootstrapRules::expandToPath(const Str &text, const PlaceholderVariables &variables) const
{
    const Pathname path = Pathname::fromUtf8(expandPlaceholders(text, variables));
    return cleanedPath(path.isAbsolute() ? path : setup_.root().join(path));
}

bool BootstrapRules::patterns(std::vector<BootstrapPattern> &out) const
{
    const IniStanza *const bootstrap = settings_.requiredStanza(kBootstrapStanza);
    if (bootstrap == nullptr) {
        return false;
    }
    bool allExpanded = true;
    const PlaceholderVariables known = variables();
    for (const IniStanza::Setting &setting : *bootstrap) {
        try {
            out.push_back({expandToPath(setting.key, known), setting.value});
        } catch (const PlaceholderException &exception) {
            // The others are served all the same: one line that is wrong must not take the whole store away.
            mapperManagerLog.error(exception);
            allExpanded = false;
        }
    }
    return allExpanded;
}

std::map<Str, Str> BootstrapRules::settingsOf(const Str &handler) const
{
    std::map<Str, Str> settings;
    if (const IniStanza *const stanza = settings_.image().findStanza(handler)) {
        for (const IniStanza::Setting &setting : *stanza) {
            settings.emplace(setting.key, setting.value);
        }
    }
    return settings;
}

std::map<Str, unsigned> BootstrapRules::depthsOfFiles() const
{
    std::map<Str, unsigned> depths;
    if (const IniStanza *const stanza = settings_.requiredStanza(kDepthStanza)) {
        for (const IniStanza::Setting &setting : *stanza) {
            unsigned depth = 0;
            if (StrSegment(setting.value).parseUnsigned(depth)) {
                depths.emplace(setting.key, depth);
            }
        }
    }
    return depths;
}

const IniEntry *BootstrapRules::findWriteRule(const ConfPathBase &path, const Str &writeKey) const
{
    const IniStanza *const writes = settings_.requiredStanza(kWritesStanza);
    if (writes == nullptr) {
        return nullptr;
    }
    // A rule that names the one place goes before all that name several, wherever it stands.
    if (const IniEntry *const exact = writes->findKey(writeKey)) {
        return exact;
    }
    const PlaceholderVariables known = variablesFor(path);
    for (const IniStanza::Setting &rule : *writes) {
        // The first one in the file; its order is the precedence of the rules.
        if (expandPlaceholders(rule.key, known) == writeKey) {
            return &rule.entry;
        }
    }
    mapperManagerLog.error("No write configuration for: %s", writeKey.c_str());
    return nullptr;
}

Pathname BootstrapRules::directoryOf(const IniEntry &writeRule, const ConfPathBase &path,
                                     const Str &userDirectory) const
{
    PlaceholderVariables known = variablesFor(path);
    known["user-case-handler"] = placeholderLiteral(userDirectory);
    // The name itself may lead out of the users' directory.
    known["user"] = known["user-case-handler"];
    known["app-directory"] = placeholderLiteral(appDirectory(setup_, path.app()).toStr());
    return expandToPath(writeRule.value(), known);
}

} // namespace velmox
