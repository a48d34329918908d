#include "util/time/timeout.h"

#include "util/time/clock.h"

namespace velmox {

void Timeout::scheduleIn(std::uint64_t milliseconds)
{
    cancel();
    due_ = queue_.clock_.milliseconds() + milliseconds;
    scheduled_ = true;
    queue_.pending_.emplace(due_, this);
}

void Timeout::cancel()
{
    if (scheduled_) {
        queue_.pending_.erase({due_, this});
        scheduled_ = false;
    }
}

std::uint64_t TimeoutQueue::runDue()
{
    const std::uint64_t now = clock_.milliseconds();
    while (!pending_.empty()) {
        const auto [due, timeout] = *pending_.begin();
        if (due > now) {
            return due - now;
        }
        timeout->cancel();
        timeout->expire();
    }
    return kNothingDue;
}

} // namespace velmox
