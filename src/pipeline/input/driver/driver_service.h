#pragma once

#include "util/system/windows_api.h"
#include "util/text/pathname.h"
#include "util/text/str.h"

#include <functional>

// The driver as the service control manager knows it. A function here that fails returns false, with a line
// at ERROR in `monitorLog`. Main thread only.
namespace velmox {

/// Codes of `manageDriver`.
inline constexpr unsigned short kInstallAndStart = 1;
/// Leaves a service whose file is in the system location alone.
inline constexpr unsigned short kStopAndRemove = 2;
inline constexpr unsigned short kStop = 3;

/// The service name of the driver for this version of Windows, which is also its file's base name. Static
/// text.
const char16_t *chooseDriverName();

/// The driver's file: `drivers`, below the system directory.
Pathname driverPath(const char16_t *driverName);

/// True in safe mode without network, where no driver of this kind can be started. Logs the mode; to ask for
/// it loads the libraries of the window system, a good part of the time that a start takes under Wine.
bool isSafeMode();

/// Does what the code says to the service of this name, whose driver lies at `path`. False when it could not
/// be installed or started, or when the manager or the service could not be asked. What fails of a stop or a
/// removal beyond that is logged and counts as done: the program ends then, and nobody would try again.
bool manageDriver(const char16_t *name, const char16_t *path, unsigned short code);

bool installDriver(SC_HANDLE manager, const char16_t *name, const char16_t *path);
bool startDriver(SC_HANDLE manager, const char16_t *name);
/// Asks the service to stop and does not wait for it.
bool stopDriver(SC_HANDLE manager, const char16_t *name);
bool removeDriver(SC_HANDLE manager, const char16_t *name);
/// False when there is no such service, without a word, or it cannot be asked. `imagePath` is set only where
/// the result is true and the service is installed.
bool queryDriverInfo(const char16_t *name, bool &installed, bool &running, Str &imagePath);

/// Checks for a caller that has to live beside another installation of the driver; the monitor's own start
/// and stop do not call them.
class DriverChecks
{
public:
    /// `startDriver` opens the device, installing the driver when it is missing. `driverName` must outlive
    /// this.
    DriverChecks(const char16_t *driverName, const Pathname &driverImagePath,
                 std::function<bool()> startDriver);

    /// Makes way for this installation's driver where another one's stands, then starts it. True when this
    /// installation's driver serves.
    bool checkInstall() const;
    /// Stops and removes the driver, whoever installed it.
    bool checkStop() const;

private:
    const char16_t *driverName_;
    Pathname driverImagePath_;
    std::function<bool()> startDriver_;
    Str expectedPath_;
};

} // namespace velmox
