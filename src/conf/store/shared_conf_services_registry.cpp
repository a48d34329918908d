#include "conf/store/shared_conf_services_registry.h"

#include "conf/root/path_forms.h"
#include "conf/store/shared_conf_services.h"
#include "util/process/loader_info.h"

#include <mutex>

namespace velmox {

namespace {

/// The path in the one form that all names of a root share but for their case.
Pathname absoluteRoot(Pathname root)
{
    if (!root.empty()) {
        root.absolute();
    }
    return cleanedPath(root);
}

} // namespace

SharedConfServicesRegistry &SharedConfServicesRegistry::instance()
{
    static auto *const registry = new SharedConfServicesRegistry;
    return *registry;
}

SharedConfServices &SharedConfServicesRegistry::defaultRoot()
{
    SharedConfServices *const services = default_.load(std::memory_order_acquire);
    return services != nullptr ? *services : get(Pathname(), Pathname());
}

SharedConfServices &SharedConfServicesRegistry::get(const Pathname &root, const Pathname &slaveApps)
{
    Pathname path = absoluteRoot(root);
    Pathname key = foldedPath(path);
    if (key == foldedPath(absoluteRoot(LoaderInfo::instance()->getConfDir()))) {
        path.clear();
        key.clear();
    }
    const std::lock_guard guard(lock_);
    const auto found = services_.find(key);
    return found != services_.end() ? *found->second : make(key, path, slaveApps);
}

SharedConfServices &SharedConfServicesRegistry::make(const Pathname &key, const Pathname &root,
                                                     const Pathname &slaveApps)
{
    auto &services = services_[key];
    services.reset(new SharedConfServices(root, slaveApps));
    try {
        services->create();
    } catch (...) {
        services_.erase(key);
        throw;
    }
    if (key.empty()) {
        default_.store(services.get(), std::memory_order_release);
    }
    return *services;
}

unsigned SharedConfServicesRegistry::population() const
{
    const std::lock_guard guard(lock_);
    return static_cast<unsigned>(services_.size());
}

} // namespace velmox
