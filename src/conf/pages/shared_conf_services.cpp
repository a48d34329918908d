#include "conf/pages/shared_conf_services.h"

#include "conf/root/path_forms.h"
#include "util/log/logger.h"
#include "util/process/loader_info.h"
#include "util/system/windows_api.h"
#include "util/time/timeval.h"

#include <mutex>

namespace velmox {

namespace {

Logger log("SharedConfServices");

std::atomic<unsigned> generations{0};

/// Measures what the calling thread spends from its construction on.
class Stopwatch
{
public:
    std::uint64_t elapsedMs() const { return GetTickCount64() - startMs_; }
    double cpuSeconds() const
    {
        return static_cast<double>(cpuTicks() - startCpuTicks_) / Timeval::kTicksPerSecond;
    }

private:
    static std::uint64_t cpuTicks()
    {
        // All four are asked for by the call; of use are the times of work.
        FILETIME made{};
        FILETIME ended{};
        FILETIME kernel{};
        FILETIME user{};
        GetThreadTimes(GetCurrentThread(), &made, &ended, &kernel, &user);
        return timevalOf(kernel).ticks() + timevalOf(user).ticks();
    }

    const std::uint64_t startMs_ = GetTickCount64();
    const std::uint64_t startCpuTicks_ = cpuTicks();
};

/// The path in the one form that all names of a root share but for their case.
Pathname absoluteRoot(Pathname root)
{
    if (!root.empty()) {
        root.absolute();
    }
    return cleanedPath(root);
}

} // namespace

ConfRootState &confRootState(const Pathname &root, const Pathname &slaveApps)
{
    return SharedConfServicesRegistry::instance().get(root, slaveApps);
}

PropertyPagesRegistry &propertyPagesRegistry(const BundlesSetup &setup)
{
    return SharedConfServices::of(setup).pages();
}

SharedConfServices::SharedConfServices(const Pathname &root, const Pathname &slaveApps)
    : ConfRootState(root), setup_(*this, slaveApps)
{
}

/// Only this class makes states of roots.
SharedConfServices &SharedConfServices::of(const BundlesSetup &setup)
{
    return static_cast<SharedConfServices &>(*setup.state_);
}

template <class Service, class... Arguments>
void SharedConfServices::make(std::unique_ptr<Service> &service, Arguments &&...arguments)
{
    // Made before the old one goes: if that throws, the old one goes on to serve.
    auto made = std::make_unique<Service>(std::forward<Arguments>(arguments)...);
    if (service) {
        retired_.emplace_back(std::move(service));
    }
    service = std::move(made);
}

/// Each works with those made before it. The states of layers alone ask one that is made later, and not
/// before there are readers.
void SharedConfServices::create()
{
    const Stopwatch stopwatch;
    make(settings_, setup_);
    setStorage(settings_->storage());
    make(poolInfo_, setup_, *settings_);
    make(mappers_, setup_, *settings_, *this);
    make(states_, LayerSources{*mappers_, [this](const Str &app) { return applications_->isUsable(app); },
                               [this](const Str &app) { return applications_->isKnown(app); }});
    make(applications_, *mappers_);
    make(pages_, sources());
    stats_ = {stopwatch.elapsedMs(), stopwatch.cpuSeconds(), ++generations};
    log.info("Setup stats for %s: wallclock_elapsed_msec=%llu, cpu_time_used=%g, "
             "shared_services_generation=%u, shared_services_population=%u",
             setup_.text(setup_.root()).c_str(), static_cast<unsigned long long>(stats_.wallclockMs),
             stats_.cpuSeconds, stats_.generation, SharedConfServicesRegistry::instance().population());
}

/// The register first: views that are made anew ask it which apps count.
void SharedConfServices::onAppsChanged()
{
    applications_->rescan(true);
    pages_->invalidateAll();
}

/// A write to a known app is told to readers by whoever wrote; only a new directory makes a new app.
void SharedConfServices::onAppWritten(const Str &app)
{
    if (!applications_->isKnown(app)) {
        onAppsChanged();
    }
}

SharedConfServicesRegistry &SharedConfServicesRegistry::instance()
{
    // Never destroyed: threads may still read settings while the process ends.
    static auto *const registry = new SharedConfServicesRegistry;
    return *registry;
}

SharedConfServices &SharedConfServicesRegistry::get(const Pathname &root, const Pathname &slaveApps)
{
    SharedConfServices *const ofDefault = default_.load(std::memory_order_acquire);
    // What nearly all calls ask for takes no lock and looks at no path.
    if (root.empty() && ofDefault != nullptr) {
        return *ofDefault;
    }
    Pathname path = absoluteRoot(root);
    Pathname key = foldedPath(path);
    // Who names the default root means the same services as one who names none.
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
    // In the map before its services are made: these make setups of their own root, and are to find this
    // one. The lock is recursive, so the thread that makes them comes through, and no other.
    services.reset(new SharedConfServices(root, slaveApps));
    try {
        services->create();
    } catch (...) {
        services_.erase(key);
        throw;
    }
    // For others only now that it is complete.
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
