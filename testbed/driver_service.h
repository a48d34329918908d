#pragma once

#include "util/system/owned_handle.h"

namespace velmox::testbed {

struct ServiceHandleTraits
{
    using Type = SC_HANDLE;
    static Type invalid() { return nullptr; }
    static void close(Type handle) { CloseServiceHandle(handle); }
};
using ServiceHandle = OwnedHandle<ServiceHandleTraits>;

/// The stand-in driver as a file and a service of the running system. Failures throw std::system_error.

/// Copies the built driver into system32\drivers, where the monitor looks for it.
void placeDriverFile();
void removeDriverFile();

/// The service with all rights, made if there is none. Whatever state it is in, its file is where
/// `placeDriverFile` puts it.
ServiceHandle openDriverService();

/// Places the file, makes the service and starts it.
void startDriverService();

/// Lets a running service survive the monitor's exit: its registered file is spelled as the one in the system
/// location. Such a service does not start again under Wine until startDriverService has put the path right.
void keepDriverService();

/// Returns when the device is gone.
void stopDriverService();
/// Stops and removes the service; does nothing if there is none.
void removeDriverService();

bool isDriverServiceInstalled();

/// Sets what makes the driver begin in live mode whenever it starts (HKLM\Software\VelmoxTestbed, value
/// Live).
void setLiveAtStart(bool live);

} // namespace velmox::testbed
