#include "pipeline/input/events/record_clock.h"

#include "util/time/timeval.h"

namespace velmox {

namespace {

constexpr std::int64_t kTicksPerMillisecond = 10000;

} // namespace

void RecordClock::note(std::uint64_t timestamp)
{
    if (lastTimestamp_ != 0 &&
        static_cast<std::int64_t>(timestamp - lastTimestamp_) <= kTicksPerMillisecond) {
        return;
    }
    if (static_cast<std::int64_t>(timestamp) < 0) {
        time(); // it cannot be converted itself, and leaves the time before it in force
    }
    lastTimestamp_ = timestamp;
    isConverted_ = false;
}

const SYSTEMTIME &RecordClock::time()
{
    if (!isConverted_) {
        const FILETIME fileTime = fileTimeOf<FILETIME>(Timeval(lastTimestamp_));
        FileTimeToSystemTime(&fileTime, &time_);
        isConverted_ = true;
    }
    return time_;
}

} // namespace velmox
