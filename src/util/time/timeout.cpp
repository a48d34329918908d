#include "util/time/timeout.h"

#include "util/text/platform.h"

namespace velmox {

Clock &Clock::system()
{
    class Uptime : public Clock
    {
        std::uint64_t milliseconds() override { return platform::uptimeMilliseconds(); }
    };
    static Uptime clock;
    return clock;
}

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
    // Asked once: timeouts that schedule themselves anew cannot keep the loop from its other work for longer
    // than the millisecond that it is.
    const std::uint64_t now = clock_.milliseconds();
    while (!pending_.empty()) {
        const auto [due, timeout] = *pending_.begin();
        if (due > now) {
            return due - now;
        }
        // Off the list before it runs, so that it may schedule itself anew, or be destroyed.
        timeout->cancel();
        timeout->expire();
    }
    return kNothingDue;
}

} // namespace velmox
