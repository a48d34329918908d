#include "pipeline/input/driver/buffer_queue.h"

#include <new>

namespace velmox {

namespace {

// Buffers for which the taker is woken. Sixteen gained nothing over eight.
constexpr std::size_t kWorthWaking = 8;

class Guard
{
public:
    explicit Guard(SRWLOCK &lock) : lock_(lock) { AcquireSRWLockExclusive(&lock_); }
    ~Guard() { ReleaseSRWLockExclusive(&lock_); }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

private:
    SRWLOCK &lock_;
};

} // namespace

bool BufferQueue::put(EventBuffer &buffer)
{
    bool isWorthWaking = false;
    try {
        const Guard guard(lock_);
        buffers_.push_back(std::move(buffer));
        isWorthWaking = buffers_.size() >= kWorthWaking;
    } catch (const std::bad_alloc &) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    // Outside the lock, which the taker needs as soon as it is awake.
    if (isWorthWaking) {
        wakeTaker();
    }
    return true;
}

void BufferQueue::wakeTaker()
{
    WakeConditionVariable(&filled_);
}

void BufferQueue::waitUntilTaken(DWORD milliseconds)
{
    wakeTaker();
    const Guard guard(lock_);
    // A wake-up that came too early begins the time anew, which is short.
    while (!buffers_.empty() && SleepConditionVariableSRW(&emptied_, &lock_, milliseconds, 0)) {
    }
}

bool BufferQueue::get(EventBuffer &buffer, DWORD milliseconds)
{
    const Guard guard(lock_);
    if (buffers_.empty()) {
        // Not repeated: a wake-up for nothing gives "nothing yet", upon which the caller looks at the stop
        // flag and comes again.
        SleepConditionVariableSRW(&filled_, &lock_, milliseconds, 0);
    }
    if (buffers_.empty()) {
        return false;
    }
    buffer = std::move(buffers_.front());
    buffers_.pop_front();
    if (buffers_.empty()) {
        WakeConditionVariable(&emptied_);
    }
    return true;
}

} // namespace velmox
