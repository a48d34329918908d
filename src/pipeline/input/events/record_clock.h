#pragma once

#include "util/system/windows_api.h"

#include <cstdint>

namespace velmox {

/// Turns the records' time stamps into broken-down UTC, at most once per millisecond of record time: a record
/// within that millisecond, or older than the last conversion, takes the time of the last conversion.
class RecordClock
{
public:
    /// To be told of every record. `timestamp` counts 100-nanosecond units since 1 January 1601.
    void note(std::uint64_t timestamp);
    /// The time of the record that was noted last.
    const SYSTEMTIME &time();

private:
    std::uint64_t lastTimestamp_ = 0;
    // Converted when it is asked for: most records end before.
    bool isConverted_ = true;
    SYSTEMTIME time_ = {};
};

} // namespace velmox
