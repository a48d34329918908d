#include "pipeline/input/driver/device_channel.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/driver/driver_service.h"

namespace velmox {

bool DeviceChannel::open()
{
    // No access is asked for, as both control codes demand none. Opened for overlapped calls: on a handle
    // for synchronous ones the system lets in one call at a time.
    handle_.reset(
        CreateFileW(asWide(kDeviceName), 0, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    return handle_.isValid();
}

bool DeviceChannel::openOrInstall(const char16_t *driverName, const Pathname &driverImagePath)
{
    constexpr char kFunction[] = "WinRegistryMonitor::StartDriver";
    if (!open()) {
        const DWORD error = GetLastError();
        // Only a device that is not there is worth an installation: any other failure comes from one that is.
        if (error != ERROR_FILE_NOT_FOUND) {
            monitorLog.error("%s: CreateFile failed ! error: '(%d)%m'", kFunction, static_cast<int>(error));
            return false;
        }
        if (!manageDriver(driverName, driverImagePath.c_str(), kInstallAndStart)) {
            monitorLog.error("%s: Unable to install driver.", kFunction);
            // A service that was made but could not be started must not stay behind.
            manageDriver(driverName, driverImagePath.c_str(), kStopAndRemove);
            return false;
        }
        if (!open()) {
            monitorLog.error("%s: CreateFile failed: '%m'", kFunction);
            return false;
        }
    }
    trace::monitor(trace::Message::DriverOpen, kFunction);
    return true;
}

bool DeviceChannel::read(unsigned char *buffer, DWORD size, DWORD &bytes) const
{
    bytes = 0;
    // Without an OVERLAPPED structure, though the handle was opened for calls with one: the driver never
    // leaves a call pending, so that this one returns with the answer.
    return DeviceIoControl(handle_.get(), IOCTL_READ_EVENTS, nullptr, 0, buffer, size, &bytes, nullptr) != 0;
}

bool DeviceChannel::setFilter(const MonitorFilterConfig &filter) const
{
    MonitorFilterConfig block = filter; // the call takes its input by a pointer that is not const
    DWORD ignored = 0;
    return DeviceIoControl(handle_.get(), IOCTL_SET_FILTER, &block, sizeof block, nullptr, 0, &ignored,
                           nullptr) != 0;
}

} // namespace velmox
