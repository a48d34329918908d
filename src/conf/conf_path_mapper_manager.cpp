#include "conf/conf_path_mapper_manager.h"

#include "conf/conf_path_base.h"
#include "conf/conf_path_mapper_factory.h"
#include "conf/conf_settings.h"
#include "conf/path_pattern.h"
#include "conf/shared_conf_services.h"
#include "util/file_system.h"
#include "util/loader_info.h"
#include "util/logger.h"

#include <mutex>
#include <set>

namespace velmox {

namespace {

Logger log("ConfPathMapperManager");

constexpr char kBootstrapStanza[] = "bootstrap";
constexpr char kConfHandler[] = "conf";

const InitSettings &initSettings()
{
    return LoaderInfo::instance()->initSettings();
}

std::map<Str, Str> settingsOfHandler(const IniFile &image, const Str &handler)
{
    std::map<Str, Str> settings;
    if (const IniStanza *const stanza = image.findStanza(handler)) {
        for (const IniStanza::Setting &setting : *stanza) {
            settings.emplace(setting.key, setting.value);
        }
    }
    return settings;
}

} // namespace

ConfPathMapperManager::ConfPathMapperManager(const BundlesSetup &setup) : setup_(setup), users_(setup)
{
    const IniFile &image = setup_.shared().settings().image();
    if (!image.loaded()) {
        return;
    }
    log.debug("Running setup for %s using %s", setup_.text(setup_.root()).c_str(),
              setup_.text(image.destination()).c_str());
    scan();
}

ConfPathMapperManager::~ConfPathMapperManager() = default;

PlaceholderVariables ConfPathMapperManager::variables() const
{
    const auto literal = [](const Pathname &path) { return placeholderLiteral(path.toStr()); };
    PlaceholderVariables variables = {
        {"apps-base", literal(setup_.appsDir())},
        {"apps-slave", literal(setup_.slaveAppsDir())},
        {"users-base", literal(setup_.usersDir())},
    };
    if (const std::optional<Str> &user = initSettings().user) {
        variables["user-restriction"] = placeholderLiteral(*user);
    }
    return variables;
}

Pathname ConfPathMapperManager::expandToPath(const Str &text, const PlaceholderVariables &variables) const
{
    const Pathname path = Pathname::fromUtf8(expandPlaceholders(text, variables));
    return cleanedPath(path.isAbsolute() ? path : setup_.root().join(path));
}

/// False when there are no patterns, or one of them cannot be expanded.
bool ConfPathMapperManager::expandBootstrap(std::vector<Pattern> &out) const
{
    const IniStanza *const bootstrap = setup_.shared().settings().requiredStanza(kBootstrapStanza);
    if (bootstrap == nullptr) {
        return false;
    }
    bool allExpanded = true;
    const PlaceholderVariables known = variables();
    for (const IniStanza::Setting &setting : *bootstrap) {
        try {
            out.push_back({expandToPath(setting.key, known), setting.value});
        } catch (const PlaceholderException &exception) {
            log.error(exception);
            allExpanded = false;
        }
    }
    return allExpanded;
}

bool ConfPathMapperManager::scan(const Pathname &only)
{
    const std::lock_guard guard(lock_);
    std::vector<Pattern> patterns;
    bool allAdded = expandBootstrap(patterns);
    bool found = only.empty();
    std::set<Pathname> claimed;
    for (const Pattern &pattern : patterns) {
        PathMappers &mappers = patterns_.insert(pattern.path.toStr()).first->value;
        std::vector<Pathname> paths;
        if (only.empty()) {
            paths = expandPathPattern(pattern.path);
        } else if (matchesPathPattern(only, pattern.path)) {
            paths = {only};
            found = true;
        }
        for (const Pathname &path : paths) {
            if (claimed.insert(foldedPath(path)).second) {
                allAdded = addPath(path, pattern, mappers) && allAdded;
            }
        }
    }
    return found && allAdded;
}

bool ConfPathMapperManager::addPath(const Pathname &path, const Pattern &pattern, PathMappers &mappers)
{
    if (!path.isAbsolute()) {
        log.error("BundleHandlerData given a relative path: %s", path.toStr().c_str());
        return false;
    }
    if (mapperAt(path) != nullptr) {
        log.debug("Already known: %s", setup_.text(path).c_str());
        return true;
    }
    const Pathname name = path.basename();
    if (name.startsWith(u".") && name != u".") {
        log.debug("Ignoring dot file: %s", setup_.text(path).c_str());
        return true;
    }
    if (confHandler(pattern.handler) == ConfHandler::Ignore) {
        return true;
    }
    PathOwner owner;
    if (!findPathOwner(setup_, users_, path, owner)) {
        return false;
    }
    return isSkipped(path, pattern.handler, owner) || addMapper(path, pattern.handler, owner, mappers);
}

bool ConfPathMapperManager::isSkipped(const Pathname &path, const Str &handler, const PathOwner &owner) const
{
    return isOmitted(path, owner) || isOverriddenBundle(path) || isBeyondMinimum(path, handler, owner);
}

bool ConfPathMapperManager::isOmitted(const Pathname &path, const PathOwner &owner) const
{
    const InitSettings &init = initSettings();
    if (init.apps && init.apps->count(owner.app) == 0) {
        log.debug("Skipping path in omitted application: %s", setup_.text(path).c_str());
        return true;
    }
    if (init.user && owner.user != kSharedUser && owner.user.compareCaseless(*init.user) != 0) {
        log.debug("Skipping path for omitted user: %s", setup_.text(path).c_str());
        return true;
    }
    return false;
}

bool ConfPathMapperManager::isOverriddenBundle(const Pathname &path) const
{
    std::vector<Pathname> levels;
    if (!levelsBelow(path, setup_.bundlesDir(), levels) || levels.empty()) {
        return false;
    }
    const Pathname app = setup_.appsDir().join(levels[0]);
    if (pathKind(app) != PathKind::Folder) {
        return false;
    }
    log.debug("Overridden bundle: %s, by: %s", setup_.text(setup_.bundlesDir().join(levels[0])).c_str(),
              setup_.text(app).c_str());
    log.debug("Skipping path in overridden application: %s", setup_.text(path).c_str());
    return true;
}

bool ConfPathMapperManager::isBeyondMinimum(const Pathname &path, const Str &handler,
                                            const PathOwner &owner) const
{
    if (!initSettings().minimal) {
        return false;
    }
    if (owner.user != kSharedUser) {
        log.debug("Skipping user-specific data during minimal init: %s", setup_.text(path).c_str());
        return true;
    }
    if (handler != kConfHandler && owner.app != kSystemApp) {
        log.debug("Skipping non-conf app data during minimal init: %s", setup_.text(path).c_str());
        return true;
    }
    return false;
}

bool ConfPathMapperManager::addMapper(const Pathname &path, const Str &handler, const PathOwner &owner,
                                      PathMappers &mappers)
{
    // Without its true name a user's directory would pass for what all users share.
    if (owner.user.empty()) {
        return false;
    }
    const ConfHandler kind = confHandler(handler);
    if (kind == ConfHandler::Unrecognized) {
        log.error("Unrecognized handler name '%s' for path: %s", handler.c_str(), setup_.text(path).c_str());
        return false;
    }
    if (kind == ConfHandler::IterateOnly) {
        mappers.emplace(path, nullptr);
        return true;
    }
    const BundleHandlerData data = {
        setup_,     path,      owner.rootDirectory,
        owner.user, owner.app, settingsOfHandler(setup_.shared().settings().image(), handler),
        &users_};
    std::unique_ptr<IConfPathMapper> mapper = makeConfPathMapper(handler, data);
    if (mapper) {
        log.debug("Added IConfPathMapper: %s", mapper->describe().c_str());
        mappers.emplace(path, mapper.get());
        all_.emplace(foldedPath(path), std::move(mapper));
    }
    return true;
}

std::vector<IConfPathMapper *> ConfPathMapperManager::mappers() const
{
    const std::lock_guard guard(lock_);
    std::vector<IConfPathMapper *> snapshot;
    for (const auto &[pattern, mappers] : patterns_) {
        for (const auto &[path, mapper] : mappers) {
            if (mapper != nullptr) {
                snapshot.push_back(mapper);
            }
        }
    }
    return snapshot;
}

IConfPathMapper *ConfPathMapperManager::mapperAt(const Pathname &path) const
{
    const auto found = all_.find(foldedPath(path));
    return found == all_.end() ? nullptr : found->second.get();
}

} // namespace velmox
