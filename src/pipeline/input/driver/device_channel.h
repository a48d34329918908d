#pragma once

#include "pipeline/input/driver/driver_protocol.h"
#include "util/system/owned_handle.h"

namespace velmox {

/// The open device of the kernel driver.
///
/// Every operation leaves its reason in the thread's last error. `read` and the others may run on different
/// threads as long as opening and closing do not overlap them.
class DeviceChannel
{
public:
    bool open();
    void close() { handle_.reset(); }
    bool isOpen() const { return handle_.isValid(); }

    /// Fills `buffer` with whole records; `bytes` is their length, 0 when nothing waits. Returns at once.
    bool read(unsigned char *buffer, DWORD size, DWORD &bytes) const;
    bool setFilter(const MonitorFilterConfig &filter) const;

private:
    FileHandle handle_;
};

} // namespace velmox
