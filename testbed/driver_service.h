#pragma once

namespace velmox::testbed {

/// The stand-in driver as a file and a service of the running system. Failures throw std::system_error.

/// Copies the built driver into system32\drivers, where the monitor looks for it.
void placeDriverFile();
void removeDriverFile();

/// Places the file, makes the service and starts it.
void startDriverService();

/// Lets a running service survive the monitor's exit: its registered file is spelled as the one in the system
/// location. Such a service does not start again under Wine until startDriverService has put the path right.
void keepDriverService();

/// Stops and removes the service; does nothing if there is none. Returns when the device is gone.
void removeDriverService();

bool isDriverServiceInstalled();

/// Sets what makes the driver begin in live mode whenever it starts (HKLM\Software\VelmoxTestbed, value
/// Live).
void setLiveAtStart(bool live);

} // namespace velmox::testbed
