#pragma once

#include "util/system/windows_api.h"
#include "util/text/pathname.h"
#include "util/text/str.h"

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

/// True in safe mode without network, where no driver of this kind can be started.
bool isSafeMode();

/// The operations on the driver's service through the service control manager. They report failures by their
/// result and a line at ERROR in `monitorLog`. Main thread only.
///
/// `manageDriver` takes the service's name, the path of the driver's file and one of the codes above. 1 for
/// success, 0 for failure.
int manageDriver(const char16_t *name, const char16_t *path, unsigned short code);
bool installDriver(SC_HANDLE manager, const char16_t *name, const char16_t *path);
bool startDriver(SC_HANDLE manager, const char16_t *name);
/// Asks the service to stop and does not wait for it.
int stopDriver(SC_HANDLE manager, const char16_t *name);
int removeDriver(SC_HANDLE manager, const char16_t *name);
/// 0 when there is no such service or it cannot be asked. `imagePath` is set only where the result is 1 and
/// the service is installed.
int queryDriverInfo(const char16_t *name, bool &installed, bool &running, Str &imagePath);

} // namespace velmox
