#pragma once

#include "util/system/windows_api.h"

#include <deque>
#include <memory>

namespace velmox {

/// Records as the driver wrote them, and how many bytes of them there are.
struct EventBuffer
{
    std::unique_ptr<unsigned char[]> data;
    DWORD bytes = 0;
};

/// Hands whole buffers from the worker to the main thread, first in, first out; a buffer belongs to whoever
/// holds it. It has no limit of its own: the worker stops filling it when the process has taken enough
/// memory.
///
/// A taker that is faster than the giver would be put to sleep and woken for each buffer, which costs more
/// than its work. So it is woken when a few buffers wait, or when the giver says that it has no more for
/// now; one that is not woken finds what waits when its time is out. Locks and conditions are those of
/// Windows, which stay inside the process: a completion port in this place cost four round trips to Wine's
/// server for each buffer, and up to a tenth of the records per second.
class BufferQueue
{
public:
    /// Takes the buffer over on success; on failure, for want of memory, the caller keeps it, with the reason
    /// in the last error.
    bool put(EventBuffer &buffer);
    /// Wakes the taker for whatever waits.
    void wakeTaker();
    /// Wakes the taker, and waits until it has taken all that waits, for `milliseconds` at most.
    void waitUntilTaken(DWORD milliseconds);

    /// False when nothing waits after `milliseconds` at the latest.
    bool get(EventBuffer &buffer, DWORD milliseconds);

private:
    SRWLOCK lock_ = SRWLOCK_INIT;
    CONDITION_VARIABLE filled_ = CONDITION_VARIABLE_INIT;
    CONDITION_VARIABLE emptied_ = CONDITION_VARIABLE_INIT;
    std::deque<EventBuffer> buffers_; // under lock_
};

} // namespace velmox
