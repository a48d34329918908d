#include "util/thread/usage_count.h"

namespace velmox {

UsageCount::Drained::Drained(UsageCount &count) : guard_(count.mutex_)
{
    while (count.count_ > 0) {
        count.drained_.wait(count.mutex_);
    }
    // The event lets one waiter through; whoever else drains finds the count at 0 as well.
    count.drained_.set();
}

void UsageCount::enter()
{
    const MutexGuard guard(mutex_);
    ++count_;
}

void UsageCount::leave()
{
    const MutexGuard guard(mutex_);
    if (--count_ == 0) {
        drained_.set();
    }
}

} // namespace velmox
