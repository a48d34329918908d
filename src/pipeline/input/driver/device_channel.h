#pragma once

#include "pipeline/input/driver/driver_protocol.h"
#include "util/system/owned_handle.h"
#include "util/text/pathname.h"

namespace velmox {

/// The open device of the kernel driver.
///
/// `open`, `read` and `setFilter` leave their reason in the thread's last error. `read` and the others may
/// run on different threads as long as opening and closing do not overlap them: the handle is not guarded.
class DeviceChannel
{
public:
    bool open();
    /// Opens the device, with the driver's service installed and started first where there is no device yet.
    /// False with the reason logged to `monitorLog`; what was installed is then removed.
    bool openOrInstall(const char16_t *driverName, const Pathname &driverImagePath);
    void close() { handle_.reset(); }
    bool isOpen() const { return handle_.isValid(); }

    /// Fills `buffer` with whole records; `bytes` is their length, 0 when nothing waits. Returns at once.
    bool read(unsigned char *buffer, DWORD size, DWORD &bytes) const;
    bool setFilter(const MonitorFilterConfig &filter) const;

private:
    FileHandle handle_;
};

} // namespace velmox
