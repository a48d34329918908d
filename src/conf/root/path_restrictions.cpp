#include "conf/root/path_restrictions.h"

#include "conf/root/path_forms.h"
#include "conf/store/mapper_manager_log.h"
#include "conf/tree/conf_path_base.h"
#include "util/files/file_system.h"
#include "util/process/loader_info.h"

namespace velmox {

namespace {

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

bool isPathLeftOut(const BundlesSetup &setup, const Pathname &path, const Str &handler,
                   const PathOwner &owner)
{
    return isOmitted(setup, path, owner) || isInOverriddenBundle(setup, path) ||
           isBeyondMinimum(setup, path, handler, owner);
}

} // namespace velmox
