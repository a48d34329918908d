#include "pipeline/input/driver/device_channel.h"

namespace velmox {

bool DeviceChannel::open()
{
    // No access is asked for, as both control codes demand none.
    handle_.reset(
        CreateFileW(asWide(kDeviceName), 0, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    return handle_.isValid();
}

bool DeviceChannel::read(unsigned char *buffer, DWORD size, DWORD &bytes) const
{
    bytes = 0;
    // Without an OVERLAPPED structure the call returns when the driver has answered.
    return DeviceIoControl(handle_.get(), IOCTL_READ_EVENTS, nullptr, 0, buffer, size, &bytes, nullptr) != 0;
}

bool DeviceChannel::setFilter(const MonitorFilterConfig &filter) const
{
    MonitorFilterConfig block = filter;
    DWORD ignored = 0;
    return DeviceIoControl(handle_.get(), IOCTL_SET_FILTER, &block, sizeof block, nullptr, 0, &ignored,
                           nullptr) != 0;
}

} // namespace velmox
