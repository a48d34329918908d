#include "pipeline/input/record_clock.h"

namespace velmox {

namespace {

constexpr std::int64_t kTicksPerMillisecond = 10000;

} // namespace

const SYSTEMTIME &RecordClock::timeOf(std::uint64_t timestamp)
{
    if (lastTimestamp_ == 0 || static_cast<std::int64_t>(timestamp - lastTimestamp_) > kTicksPerMillisecond) {
        lastTimestamp_ = timestamp;
        const FILETIME fileTime = {static_cast<DWORD>(timestamp), static_cast<DWORD>(timestamp >> 32)};
        FileTimeToSystemTime(&fileTime, &cachedTime_);
    }
    return cachedTime_;
}

} // namespace velmox
