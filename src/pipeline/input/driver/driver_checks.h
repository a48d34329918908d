#pragma once

#include "util/text/pathname.h"

#include <functional>

namespace velmox {

/// Checks for a caller that has to live beside another installation of the driver; the monitor's own start
/// and stop do not call them. Main thread only.
class DriverChecks
{
public:
    /// `startDriver` opens the device, installing the driver when it is missing. `driverName` must outlive
    /// this.
    DriverChecks(const char16_t *driverName, const Pathname &driverImagePath,
                 std::function<bool()> startDriver);

    /// Makes way for this installation's driver where another one's stands, then starts it. 1 when this
    /// installation's driver serves.
    int checkInstall() const;
    /// Stops and removes the driver, whoever installed it. 0 when that failed.
    int checkStop() const;

private:
    const char16_t *driverName_;
    Pathname driverImagePath_;
    std::function<bool()> startDriver_;
    Str expectedPath_;
};

} // namespace velmox
