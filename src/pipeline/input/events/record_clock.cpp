#include "pipeline/input/events/record_clock.h"

namespace velmox {

namespace {

constexpr std::int64_t kTicksPerMillisecond = 10000;

} // namespace

void RecordClock::note(std::uint64_t timestamp)
{
    // The difference is signed, so that an older record counts as within the millisecond too.
    if (lastTimestamp_ != 0 &&
        static_cast<std::int64_t>(timestamp - lastTimestamp_) <= kTicksPerMillisecond) {
        return;
    }
    lastTimestamp_ = timestamp;
    // One with the highest bit set is no date, and leaves the time before it in force.
    if (static_cast<std::int64_t>(timestamp) >= 0) {
        time_ = Timeval(timestamp);
    }
}

Timeval RecordClock::time() const
{
    return time_ == kNoTime ? time_ : Timeval(time_.ticks() - time_.ticks() % kTicksPerMillisecond);
}

} // namespace velmox
