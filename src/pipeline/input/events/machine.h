#pragma once

#include "pipeline/input/rules/drive_map.h"
#include "util/time/timeval.h"

#include <cstdint>

namespace velmox {

/// Room for an image path with its NUL, in 16-bit units, in every buffer that is passed for one.
inline constexpr int kImageUnits = 260;

/// What has to be asked of the machine while records are rendered: the one that this program runs on, or the
/// one that they were recorded on.
///
/// For the main thread, but for `tickCount`, which any may call.
class Machine
{
public:
    virtual ~Machine() = default;

    /// The local time at a moment, given as the moment at which UTC shows the same date and time; false if
    /// it has none.
    virtual bool localTime(Timeval utc, Timeval &local) = 0;
    /// Fills `out`, of `kImageUnits`, with the image path in device form of a process that was just created;
    /// false when it cannot be had, as of one that has ended meanwhile.
    virtual bool processImage(std::uint32_t pid, char16_t *out) = 0;
    /// Milliseconds since some moment, for intervals; it begins again at 0 behind the largest number, after
    /// 49.7 days.
    virtual std::uint32_t tickCount() const = 0;
    virtual DriveMap &drives() = 0;
};

/// The machine that the program runs on. Never destroyed: the watch of a parent may end the process while
/// events are on their way.
Machine &systemMachine();

} // namespace velmox
