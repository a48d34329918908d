#include "conf/root/bundles_setup.h"

#include "conf/ground/conf_path_exceptions.h"
#include "conf/root/path_forms.h"
#include "conf/store/conf_settings.h"
#include "conf/store/shared_conf_services.h"
#include "conf/store/shared_conf_services_registry.h"
#include "util/process/loader_info.h"
#include "util/system/environment.h"

namespace velmox {

namespace {

/// Whether `path` is `folder` or lies below it.
bool liesIn(const Pathname &path, const WideStr &folder)
{
    return path.startsWith(folder) && (path.size() == folder.size() || isSlash(path[folder.size()]));
}

/// The shared storage root; empty without shared storage, and while the settings that tell are being read.
Pathname storageOf(const SharedConfServices &services)
{
    const ConfSettings *const settings = services.settingsIfMade();
    return settings == nullptr ? Pathname() : settings->storage();
}

Pathname orElse(const Pathname &path, const Pathname &other)
{
    return path.empty() ? other : path;
}

} // namespace

BundlesSetup::BundlesSetup() : shared_(&SharedConfServicesRegistry::instance().defaultRoot()) {}

BundlesSetup::BundlesSetup(const Pathname &root, const Pathname &slaveApps)
    : slaveApps_(cleanedPath(slaveApps)),
      shared_(&SharedConfServicesRegistry::instance().get(root, slaveApps))
{
    root_ = shared_->setup_.root_;
}

BundlesSetup::BundlesSetup(const Pathname &root, const Pathname &slaveApps, SharedConfServices &shared)
    : root_(root), slaveApps_(cleanedPath(slaveApps)), shared_(&shared)
{
}

std::strong_ordering operator<=>(const BundlesSetup &a, const BundlesSetup &b)
{
    return a.root_ <=> b.root_;
}

Pathname BundlesSetup::root() const
{
    return isDefaultRoot() ? cleanedPath(LoaderInfo::instance()->getConfDir()) : root_;
}

Pathname BundlesSetup::appsDir() const
{
    return orElse(storageOf(*shared_), root()).join("apps");
}

Pathname BundlesSetup::usersDir() const
{
    return orElse(storageOf(*shared_), root()).join("users");
}

Pathname BundlesSetup::slaveAppsDir() const
{
    return orElse(slaveApps_, root().join("slave-apps"));
}

Pathname BundlesSetup::poolInfoFile() const
{
    const Pathname storage = storageOf(*shared_);
    if (storage.empty()) {
        throw ConfPathException("Cannot get pooling info with no shared storage location configured");
    }
    return storage.join("pooling").join("pooling.ini");
}

Pathname BundlesSetup::runDir() const
{
    return orElse(storageOf(*shared_), LoaderInfo::instance()->getHome()).join("var\\run\\velmox");
}

Str BundlesSetup::text(const Pathname &path) const
{
    const Pathname home = cleanedPath(environmentVariable(u"VELMOX_HOME"));
    if (home.empty() || !liesIn(root(), home) || !liesIn(path, home)) {
        return path.toStr();
    }
    return Str("$VELMOX_HOME") += Str::fromUtf16(path.view().substr(home.size()));
}

} // namespace velmox
