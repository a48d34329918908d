#include "pipeline/input/events/record_clock.h"

#include "util/time/file_time.h"

namespace velmox {

namespace {

constexpr std::int64_t kTicksPerMillisecond = 10000;

} // namespace

const SYSTEMTIME &RecordClock::timeOf(std::uint64_t timestamp)
{
    if (lastTimestamp_ == 0 || static_cast<std::int64_t>(timestamp - lastTimestamp_) > kTicksPerMillisecond) {
        lastTimestamp_ = timestamp;
        const FILETIME fileTime = fileTimeOf(Timeval(timestamp));
        FileTimeToSystemTime(&fileTime, &cachedTime_);
    }
    return cachedTime_;
}

} // namespace velmox
