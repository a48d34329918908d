#pragma once

#include "util/thread/mutex.h"

namespace velmox {

/// One unnamed auto-reset event, clear at first: a `set` lets one waiter through, at once or later.
class Event
{
public:
    Event();
    ~Event() noexcept { handle_.closeWithoutRaising(); }

    void set();
    /// Whether it was set; takes the signal away.
    bool poll();

    /// Releases the mutex, which the caller holds, and begins to wait in one step; takes the mutex again
    /// before it returns, also after a timeout. The timed form is false on timeout.
    void wait(Mutex &mutex);
    bool waitFor(Mutex &mutex, unsigned milliseconds);

    HANDLE handle() const { return handle_.get(); }

private:
    thread_primitives::CheckedHandle handle_;
};

} // namespace velmox
