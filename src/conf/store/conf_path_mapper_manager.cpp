#include "conf/store/conf_path_mapper_manager.h"

#include "conf/mapper/conf_path_mapper_factory.h"
#include "conf/root/path_forms.h"
#include "conf/root/path_owner.h"
#include "conf/root/path_pattern.h"
#include "conf/root/path_restrictions.h"
#include "conf/store/conf_settings.h"
#include "conf/store/mapper_manager_log.h"
#include "conf/store/shared_conf_services.h"

#include <mutex>
#include <set>

namespace velmox {

Logger mapperManagerLog("ConfPathMapperManager");

namespace {

/// What exists and matches the pattern; with `only`, that path if it matches, whether it exists or not.
std::vector<Pathname> pathsOf(const Pathname &pattern, const Pathname &only)
{
    if (only.empty()) {
        return expandPathPattern(pattern);
    }
    return matchesPathPattern(only, pattern) ? std::vector{only} : std::vector<Pathname>();
}

} // namespace

ConfPathMapperManager::ConfPathMapperManager(const BundlesSetup &setup)
    : setup_(setup), rules_(setup), users_(setup)
{
    const IniFile &image = setup_.shared().settings().image();
    if (!image.loaded()) {
        return;
    }
    mapperManagerLog.debug("Running setup for %s using %s", setup_.text(setup_.root()).c_str(),
                           setup_.text(image.destination()).c_str());
    scan();
}

ConfPathMapperManager::~ConfPathMapperManager() = default;

bool ConfPathMapperManager::scan(const Pathname &only)
{
    const std::lock_guard guard(lock_);
    std::vector<BootstrapPattern> patterns;
    bool allAdded = rules_.patterns(patterns);
    bool found = only.empty();
    std::set<Pathname> claimed;
    for (const BootstrapPattern &pattern : patterns) {
        PathMappers &mappers = patterns_.insert(pattern.path.toStr()).first->value;
        for (const Pathname &path : pathsOf(pattern.path, only)) {
            found = true;
            if (claimed.insert(foldedPath(path)).second) {
                allAdded = addPath(path, pattern.handler, mappers) && allAdded;
            }
        }
    }
    return found && allAdded;
}

bool ConfPathMapperManager::addPath(const Pathname &path, const Str &handler, PathMappers &mappers)
{
    if (!path.isAbsolute()) {
        mapperManagerLog.error("BundleHandlerData given a relative path: %s", path.toStr().c_str());
        return false;
    }
    if (mapperAt(path) != nullptr) {
        mapperManagerLog.debug("Already known: %s", setup_.text(path).c_str());
        return true;
    }
    const Pathname name = path.basename();
    if (name.startsWith(u".") && name != u".") {
        mapperManagerLog.debug("Ignoring dot file: %s", setup_.text(path).c_str());
        return true;
    }
    if (confHandler(handler) == ConfHandler::Ignore) {
        return true;
    }
    PathOwner owner;
    if (!findPathOwner(setup_, users_, path, owner)) {
        return false;
    }
    return isPathLeftOut(setup_, path, handler, owner) || addMapper(path, handler, owner, mappers);
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
        mapperManagerLog.error("Unrecognized handler name '%s' for path: %s", handler.c_str(),
                               setup_.text(path).c_str());
        return false;
    }
    if (kind == ConfHandler::IterateOnly) {
        mappers.emplace(path, nullptr);
        return true;
    }
    const BundleHandlerData data = {
        setup_, path, owner.rootDirectory, owner.user, owner.app, rules_.settingsOf(handler), &users_};
    std::unique_ptr<IConfPathMapper> mapper = makeConfPathMapper(handler, data);
    if (mapper) {
        mapperManagerLog.debug("Added IConfPathMapper: %s", mapper->describe().c_str());
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
