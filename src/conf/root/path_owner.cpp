#include "conf/root/path_owner.h"

#include "conf/root/bootstrap_rules.h"
#include "conf/root/path_forms.h"
#include "conf/root/username_mapper.h"
#include "conf/tree/conf_path_base.h"
#include "util/files/file_system.h"
#include "util/process/loader_info.h"

namespace velmox {

namespace {

using Levels = std::vector<Pathname>;

bool findAppIn(const Pathname &apps, const Pathname &path, PathOwner &owner)
{
    Levels levels;
    if (!levelsBelow(path, apps, levels) || levels.empty()) {
        return false;
    }
    owner = {kSharedUser, levels[0].toStr(), apps.join(levels[0])};
    return true;
}

bool isMappingDirectory(const Pathname &name)
{
    return name.toStr().compareCaseless(UsernameMapper::kMappingDirectory) == 0;
}

/// The user whose directory bears a safe name; empty when that is not recorded.
Str trueNameOf(UsernameMapper &users, const Pathname &safeName, const Pathname &path)
{
    Str name;
    if (!users.trueName(safeName.toStr().lowered(), name)) {
        mapperManagerLog.warn("Failed to look up real username for: %s", path.toStr().c_str());
        name.clear();
    }
    return name;
}

bool findUserIn(const Pathname &directory, UsernameMapper &users, const Pathname &path, PathOwner &owner)
{
    Levels levels;
    if (!levelsBelow(path, directory, levels) || levels.empty()) {
        return false;
    }
    // users\NAME\APP, or users\_reserved\SAFE-NAME\APP.
    const bool isMapped = isMappingDirectory(levels[0]);
    const std::size_t appAt = isMapped ? 2 : 1;
    if (levels.size() <= appAt) {
        return false;
    }
    owner.user = isMapped ? trueNameOf(users, levels[1], path) : levels[0].toStr().lowered();
    owner.app = levels[appAt].toStr();
    owner.rootDirectory = directory;
    for (std::size_t level = 0; level <= appAt; ++level) {
        owner.rootDirectory.append(levels[level]);
    }
    return true;
}

/// The system's own directory, the bundles of older installations, and what lies directly in the root.
bool findSystem(const BundlesSetup &setup, const Pathname &path, PathOwner &owner)
{
    owner.user = kSharedUser;
    owner.app = kSystemApp;
    Levels levels;
    if (levelsBelow(path, setup.systemDir(), levels)) {
        owner.rootDirectory = setup.systemDir();
    } else if (levelsBelow(path, setup.bundlesDir(), levels)) {
        owner.rootDirectory = setup.bundlesDir();
        if (!levels.empty()) {
            owner.rootDirectory.append(levels[0]);
        }
        // What lies in the root itself, and not in some folder of it that nobody knows.
    } else if (levelsBelow(path, setup.root(), levels) && levels.size() <= 1) {
        owner.rootDirectory = setup.root();
    } else {
        return false;
    }
    return true;
}

constexpr char kConfHandler[] = "conf";

bool isOmitted(const BundlesSetup &setup, const Pathname &path, const PathOwner &owner)
{
    const InitSettings &init = LoaderInfo::instance()->initSettings();
    if (init.apps && init.apps->count(owner.app) == 0) {
        mapperManagerLog.debug("Skipping path in omitted application: %s", setup.text(path).c_str());
        return true;
    }
    if (init.user && owner.user != kSharedUser && owner.user.compareCaseless(*init.user) != 0) {
        mapperManagerLog.debug("Skipping path for omitted user: %s", setup.text(path).c_str());
        return true;
    }
    return false;
}

/// A bundle is what older installations have for an app; the app of the same name takes its place.
bool isInOverriddenBundle(const BundlesSetup &setup, const Pathname &path)
{
    std::vector<Pathname> levels;
    if (!levelsBelow(path, setup.bundlesDir(), levels) || levels.empty()) {
        return false;
    }
    const Pathname app = setup.appsDir().join(levels[0]);
    if (pathKind(app) != PathKind::Folder) {
        return false;
    }
    mapperManagerLog.debug("Overridden bundle: %s, by: %s",
                           setup.text(setup.bundlesDir().join(levels[0])).c_str(), setup.text(app).c_str());
    mapperManagerLog.debug("Skipping path in overridden application: %s", setup.text(path).c_str());
    return true;
}

/// A run that needs little of the store, and at once, reads the settings of all apps and the system alone.
bool isBeyondMinimum(const BundlesSetup &setup, const Pathname &path, const Str &handler,
                     const PathOwner &owner)
{
    if (!LoaderInfo::instance()->initSettings().minimal) {
        return false;
    }
    if (owner.user != kSharedUser) {
        mapperManagerLog.debug("Skipping user-specific data during minimal init: %s",
                               setup.text(path).c_str());
        return true;
    }
    if (handler != kConfHandler && owner.app != kSystemApp) {
        mapperManagerLog.debug("Skipping non-conf app data during minimal init: %s",
                               setup.text(path).c_str());
        return true;
    }
    return false;
}

} // namespace

bool findPathOwner(const BundlesSetup &setup, UsernameMapper &users, const Pathname &path, PathOwner &owner)
{
    // The root comes last: the other places lie within it, unless storage is shared.
    const bool found = findAppIn(setup.appsDir(), path, owner) ||
                       findAppIn(setup.slaveAppsDir(), path, owner) ||
                       findUserIn(setup.usersDir(), users, path, owner) || findSystem(setup, path, owner);
    // Asked of every path of the store: texts are made only for a log that takes them.
    if (!mapperManagerLog.debugEnabled()) {
        return found;
    }
    if (found) {
        mapperManagerLog.debug("Root directory for %s: %s [user: %s, application: %s]",
                               setup.text(path).c_str(), setup.text(owner.rootDirectory).c_str(),
                               owner.user.c_str(), owner.app.c_str());
    } else {
        mapperManagerLog.debug("Cannot determine root directory: %s", setup.text(path).c_str());
    }
    return found;
}

bool isPathLeftOut(const BundlesSetup &setup, const Pathname &path, const Str &handler,
                   const PathOwner &owner)
{
    return isOmitted(setup, path, owner) || isInOverriddenBundle(setup, path) ||
           isBeyondMinimum(setup, path, handler, owner);
}

} // namespace velmox
