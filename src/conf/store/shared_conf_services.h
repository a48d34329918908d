#pragma once

#include "conf/root/bundles_setup.h"

#include <memory>
#include <vector>

namespace velmox {

class ApplicationManager;
class ConfPathMapperManager;
class ConfSettings;
class PropertyPagesRegistry;
class SearchHeadPoolInfo;
class SharedConfStates;

/// What it took to make the services of a root.
struct SetupStats
{
    std::uint64_t wallclockMs = 0;
    double cpuSeconds = 0;
    /// How many times services were made in this process by then, those of other roots included.
    unsigned generation = 0;
};

/// The services of one configuration root, made with its first `BundlesSetup` and kept to the end of the
/// process.
class SharedConfServices
{
public:
    ~SharedConfServices();

    /// Makes the services anew, one by one in their order. Nobody may use them meanwhile; what was handed out
    /// before stays valid.
    void recreate();

    const ConfSettings &settings() const { return *settings_; }
    /// Null while the services are being made and this one's turn has not come; so `BundlesSetup` can ask.
    const ConfSettings *settingsIfMade() const { return settings_.get(); }
    SearchHeadPoolInfo &poolInfo() const { return *poolInfo_; }
    ConfPathMapperManager &mappers() const { return *mappers_; }
    SharedConfStates &states() const { return *states_; }
    ApplicationManager &applications() const { return *applications_; }
    PropertyPagesRegistry &pages() const { return *pages_; }

    const SetupStats &stats() const { return stats_; }

private:
    friend class BundlesSetup;
    friend class SharedConfServicesRegistry;
    SharedConfServices(const Pathname &root, const Pathname &slaveApps);
    void create();
    template <class Service>
    void make(std::unique_ptr<Service> &service);

    const BundlesSetup setup_;
    SetupStats stats_;
    /// Services that were replaced.
    std::vector<std::shared_ptr<void>> retired_;
    std::unique_ptr<ConfSettings> settings_;
    std::unique_ptr<SearchHeadPoolInfo> poolInfo_;
    std::unique_ptr<ConfPathMapperManager> mappers_;
    std::unique_ptr<SharedConfStates> states_;
    std::unique_ptr<ApplicationManager> applications_;
    std::unique_ptr<PropertyPagesRegistry> pages_;
};

} // namespace velmox
