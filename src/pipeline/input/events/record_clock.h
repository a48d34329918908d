#pragma once

#include "util/time/timeval.h"

#include <cstdint>

namespace velmox {

/// No moment, which events show as zeros.
inline constexpr Timeval kNoTime{Timeval::kMax};

/// The time that events carry, which moves on at most once per millisecond of record time: a record within
/// that millisecond, or older than the one that moved it, takes the time as it stands. So the times of these
/// events never go back, whatever the order of the driver's records.
class RecordClock
{
public:
    /// To be told of every record. `timestamp` counts 100-nanosecond units since 1 January 1601.
    void note(std::uint64_t timestamp);
    /// The time of the record that was noted last, in whole milliseconds; `kNoTime` as long as there was none
    /// that is a date.
    Timeval time() const;

private:
    std::uint64_t lastTimestamp_ = 0;
    Timeval time_ = kNoTime;
};

} // namespace velmox
