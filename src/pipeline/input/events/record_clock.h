#pragma once

#include "util/system/windows_api.h"

#include <cstdint>

namespace velmox {

/// Turns the records' time stamps into broken-down UTC, at most once per millisecond of record time: a record
/// within that millisecond, or older than the last conversion, takes the time of the last conversion.
class RecordClock
{
public:
    /// `timestamp` counts 100-nanosecond units since 1 January 1601.
    const SYSTEMTIME &timeOf(std::uint64_t timestamp);

private:
    std::uint64_t lastTimestamp_ = 0;
    SYSTEMTIME cachedTime_ = {};
};

} // namespace velmox
