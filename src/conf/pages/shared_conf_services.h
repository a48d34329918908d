#pragma once

#include "conf/cache/shared_conf_state.h"
#include "conf/mapper/i_conf_path_mapper.h"
#include "conf/pages/property_pages.h"
#include "conf/root/conf_settings.h"
#include "conf/store/application_manager.h"
#include "conf/store/conf_path_mapper_manager.h"

#include <atomic>
#include <map>
#include <memory>
#include <vector>

namespace velmox {

/// What it took to make the services of a root.
struct SetupStats
{
    std::uint64_t wallclockMs = 0;
    double cpuSeconds = 0;
    /// How many times services were made in this process by then, those of other roots included.
    unsigned generation = 0;
};

/// The composition root of the store: makes the services of one configuration root with its first
/// `BundlesSetup`, hands to each what it works with, and keeps them to the end of the process. The services
/// themselves do not know it; it is for the programs on top of the store.
class SharedConfServices : public ConfRootState, public ConfChangeObserver
{
public:
    static SharedConfServices &of(const BundlesSetup &setup);

    /// Makes the services anew, one by one in their order. Nobody may use them meanwhile. What was handed
    /// out before stays usable, and is told of no change any more: it goes on with services that are kept
    /// for it. An exception leaves those made until then.
    void recreate() { create(); }

    const ConfSettings &settings() const { return *settings_; }
    ConfPathMapperManager &mappers() const { return *mappers_; }
    SharedConfStates &states() const { return *states_; }
    ApplicationManager &applications() const { return *applications_; }
    PropertyPagesRegistry &pages() const { return *pages_; }
    /// What a view of this root is made of.
    ConfSources sources() const { return {*settings_, *mappers_, *applications_, *states_}; }

    // On the thread of whoever wrote or noticed the change, which holds no lock of a mapper then.
    void onAppsChanged() override;
    void onAppWritten(const Str &app) override;

private:
    friend class SharedConfServicesRegistry;
    SharedConfServices(const Pathname &root, const Pathname &slaveApps);
    void create();
    /// Makes one service in place of another, which is retired.
    template <class Service, class... Arguments>
    void make(std::unique_ptr<Service> &service, Arguments &&...arguments);

    const BundlesSetup setup_;
    SetupStats stats_;
    /// Services that were replaced, kept to the end of the process: pages that were handed out before refer
    /// to them. Each type is destroyed as what it is, which `shared_ptr<void>` remembers.
    std::vector<std::shared_ptr<void>> retired_;
    // In the order in which they are made, so that after a failure each is destroyed before those it works
    // with.
    std::unique_ptr<ConfSettings> settings_;
    std::unique_ptr<SearchHeadPoolInfo> poolInfo_;
    std::unique_ptr<ConfPathMapperManager> mappers_;
    std::unique_ptr<SharedConfStates> states_;
    std::unique_ptr<ApplicationManager> applications_;
    std::unique_ptr<PropertyPagesRegistry> pages_;
};

/// The services of all configuration roots that this process uses, each made when its root is first asked
/// for. Any thread; others wait while the services of a root are being made.
class SharedConfServicesRegistry
{
public:
    /// Made by the first call and never destroyed.
    static SharedConfServicesRegistry &instance();

    /// `root` may be empty, which takes no lock once the services of the default root are complete, and may
    /// name the default root. What the services make of their own root while they are being made gives them
    /// as far as they are.
    SharedConfServices &get(const Pathname &root, const Pathname &slaveApps);

    unsigned population() const;

private:
    SharedConfServicesRegistry() = default;
    SharedConfServices &make(const Pathname &key, const Pathname &root, const Pathname &slaveApps);

    mutable ConfLock lock_{ConfLockRank::Setups};
    /// By folded root; the default root's key is empty, so that all who name no root find it without a look
    /// at where it lies.
    std::map<Pathname, std::unique_ptr<SharedConfServices>> services_;
    /// The default root's, once they are complete.
    std::atomic<SharedConfServices *> default_{nullptr};
};

} // namespace velmox
