#include "conf/root/bundles_setup.h"

#include "conf/ground/conf_exceptions.h"
#include "conf/root/path_forms.h"
#include "util/process/loader_info.h"
#include "util/system/environment.h"

namespace velmox {

namespace {

/// Whether `path` is `folder` or lies below it.
bool liesIn(const Pathname &path, const WideStr &folder)
{
    return path.startsWith(folder) && (path.size() == folder.size() || isSlash(path[folder.size()]));
}

Pathname orElse(const Pathname &path, const Pathname &other)
{
    return path.empty() ? other : path;
}

} // namespace

BundlesSetup::BundlesSetup(const Pathname &root, const Pathname &slaveApps)
    : BundlesSetup(confRootState(root, slaveApps), slaveApps)
{
}

BundlesSetup::BundlesSetup(ConfRootState &state, const Pathname &slaveApps)
    : slaveApps_(cleanedPath(slaveApps)), state_(&state)
{
}

Pathname BundlesSetup::root() const
{
    // Asked each time, as the default root may be named before the environment has been read.
    return isDefaultRoot() ? cleanedPath(LoaderInfo::instance()->getConfDir()) : state_->root_;
}

Pathname BundlesSetup::appsDir() const
{
    return orElse(state_->storage_, root()).join("apps");
}

Pathname BundlesSetup::usersDir() const
{
    return orElse(state_->storage_, root()).join("users");
}

Pathname BundlesSetup::slaveAppsDir() const
{
    // Never on shared storage: what another host hands out, each host keeps for itself.
    return orElse(slaveApps_, root().join("slave-apps"));
}

Pathname BundlesSetup::poolInfoFile() const
{
    if (state_->storage_.empty()) {
        throw ConfPathException("Cannot get pooling info with no shared storage location configured");
    }
    return state_->storage_.join("pooling").join("pooling.ini");
}

Pathname BundlesSetup::runDir() const
{
    return orElse(state_->storage_, LoaderInfo::instance()->getHome()).join("var\\run\\velmox");
}

/// Asks the environment each time: a program may learn its home after the root was named.
Str BundlesSetup::text(const Pathname &path) const
{
    const Pathname home = cleanedPath(environmentVariable(u"VELMOX_HOME"));
    // A root outside of the installation is told in full, and so is all of it.
    if (home.empty() || !liesIn(root(), home) || !liesIn(path, home)) {
        return path.toStr();
    }
    return Str("$VELMOX_HOME") += Str::fromUtf16(path.view().substr(home.size()));
}

Str ConfContext::toStr() const
{
    return Str::fromFormat("(user: %s, app: %s, root: %s)", user.c_str(), app.c_str(),
                           setup.text(setup.root()).c_str());
}

} // namespace velmox
