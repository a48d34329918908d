#include "conf/root/path_owner.h"

#include "conf/root/path_forms.h"
#include "conf/root/username_mapper.h"
#include "conf/store/mapper_manager_log.h"
#include "conf/tree/conf_path_base.h"

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
    } else if (levelsBelow(path, setup.root(), levels) && levels.size() <= 1) {
        owner.rootDirectory = setup.root();
    } else {
        return false;
    }
    return true;
}

} // namespace

bool findPathOwner(const BundlesSetup &setup, UsernameMapper &users, const Pathname &path, PathOwner &owner)
{
    const bool found = findAppIn(setup.appsDir(), path, owner) ||
                       findAppIn(setup.slaveAppsDir(), path, owner) ||
                       findUserIn(setup.usersDir(), users, path, owner) || findSystem(setup, path, owner);
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

} // namespace velmox
