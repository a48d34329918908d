#include "conf/store/shared_conf_services.h"

#include "conf/cache/shared_conf_state.h"
#include "conf/pages/property_pages_registry.h"
#include "conf/root/search_head_pool_info.h"
#include "conf/store/application_manager.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/conf_settings.h"
#include "conf/store/shared_conf_services_registry.h"
#include "util/log/logger.h"
#include "util/time/file_time.h"

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

} // namespace

SharedConfServices::SharedConfServices(const Pathname &root, const Pathname &slaveApps)
    : setup_(root, slaveApps, *this)
{
}

SharedConfServices::~SharedConfServices() = default;

template <class Service>
void SharedConfServices::make(std::unique_ptr<Service> &service)
{
    auto made = std::make_unique<Service>(setup_);
    if (service) {
        retired_.emplace_back(std::move(service));
    }
    service = std::move(made);
}

void SharedConfServices::create()
{
    const Stopwatch stopwatch;
    make(settings_);
    make(poolInfo_);
    make(mappers_);
    make(states_);
    make(applications_);
    make(pages_);
    stats_ = {stopwatch.elapsedMs(), stopwatch.cpuSeconds(), ++generations};
    log.info("Setup stats for %s: wallclock_elapsed_msec=%llu, cpu_time_used=%g, "
             "shared_services_generation=%u, shared_services_population=%u",
             setup_.text(setup_.root()).c_str(), static_cast<unsigned long long>(stats_.wallclockMs),
             stats_.cpuSeconds, stats_.generation, SharedConfServicesRegistry::instance().population());
}

void SharedConfServices::recreate()
{
    create();
}

} // namespace velmox
