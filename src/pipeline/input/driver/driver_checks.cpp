#include "pipeline/input/driver/driver_checks.h"

#include "pipeline/input/diagnostics/monitor_log.h"
#include "pipeline/input/driver/driver_service.h"

#include <utility>

namespace velmox {

namespace {

const char *stateText(bool running)
{
    return running ? "installed and started" : "installed";
}

} // namespace

DriverChecks::DriverChecks(const char16_t *driverName, const Pathname &driverImagePath,
                           std::function<bool()> startDriver)
    : driverName_(driverName), driverImagePath_(driverImagePath), startDriver_(std::move(startDriver)),
      expectedPath_(Str::fromFormat("\\??\\%s\\%s.sys", driverImagePath.toStr().c_str(),
                                    Str::fromUtf16(driverName).c_str()))
{
}

int DriverChecks::checkInstall() const
{
    bool installed = false;
    bool running = false;
    Str imagePath;
    if (queryDriverInfo(driverName_, installed, running, imagePath)) {
        if ((running || installed) && imagePath.compareCaseless(expectedPath_) == 0) {
            return 1;
        }
        if (!manageDriver(driverName_, driverImagePath_.c_str(), kStopAndRemove)) {
            monitorLog.error("Driver Install Check for '%s' failed. Another driver - '%s' is already %s.",
                             expectedPath_.c_str(), imagePath.c_str(), stateText(running));
        }
    }
    return startDriver_() ? 1 : 0;
}

int DriverChecks::checkStop() const
{
    bool installed = false;
    bool running = false;
    Str imagePath;
    if (!queryDriverInfo(driverName_, installed, running, imagePath)) {
        return 1;
    }
    if (imagePath.compareCaseless(expectedPath_) != 0) {
        monitorLog.error("Another driver '%s' seems to be installed.", imagePath.c_str());
    }
    if (!installed) {
        return 1;
    }
    const bool stopped = !running || manageDriver(driverName_, driverImagePath_.c_str(), kStop);
    if (stopped && manageDriver(driverName_, driverImagePath_.c_str(), kStopAndRemove)) {
        return 1;
    }
    monitorLog.error("Driver stop Check for '%s' failed. Another driver - '%s' is already %s.",
                     expectedPath_.c_str(), imagePath.c_str(), stateText(running));
    return 0;
}

} // namespace velmox
