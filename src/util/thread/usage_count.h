#pragma once

#include "util/thread/event.h"

namespace velmox {

/// Counts who is inside, and lets a thread wait until nobody is.
class UsageCount
{
public:
    /// Keeps everybody out while it lives.
    class Drained
    {
    public:
        explicit Drained(UsageCount &count);

    private:
        MutexGuard guard_;
    };

    void enter();
    void leave();

    /// Waits until the count is 0. Nobody can enter before the returned guard goes away.
    [[nodiscard]] Drained drain() { return Drained(*this); }

private:
    int count_ = 0; // under mutex_
    Event drained_;
    Mutex mutex_;
};

} // namespace velmox
