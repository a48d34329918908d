#pragma once

#include "util/thread/thread_primitives.h"

namespace velmox {

// Which lock is for what: `std::mutex` for a few statements of code that may stand below this room;
// `CriticalSection` where the holder may come again; `Mutex` where a wait goes with the lock, as it costs a
// call of the system each time.

/// Lock on a critical section, for short stretches without a wait. Recursive. Usable with std::lock_guard.
class CriticalSection
{
public:
    CriticalSection() { InitializeCriticalSection(&section_); }
    CriticalSection(const CriticalSection &) = delete;
    CriticalSection &operator=(const CriticalSection &) = delete;
    ~CriticalSection() { DeleteCriticalSection(&section_); }

    void lock() { EnterCriticalSection(&section_); }
    void unlock() { LeaveCriticalSection(&section_); }

private:
    CRITICAL_SECTION section_;
};

/// Lock on one unnamed mutex of the operating system: recursive, and able to be released in the same step
/// that begins a wait. Failures raise `ThreadException`, but for the destructor's, which are logged.
class Mutex
{
public:
    Mutex();
    ~Mutex() noexcept { handle_.closeWithoutRaising(); }

    /// Waits without a limit.
    void lock() { thread_primitives::waitForObject(handle()); }
    void unlock();
    /// False when another thread holds it.
    bool tryLock() { return thread_primitives::waitForObject(handle(), 0); }

    HANDLE handle() const { return handle_.get(); }

private:
    thread_primitives::CheckedHandle handle_;
};

/// Holds a `Mutex` for a scope. A failed release raises, unless another exception is on its way already.
class MutexGuard
{
public:
    explicit MutexGuard(Mutex &mutex) : mutex_(mutex) { mutex_.lock(); }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;
    ~MutexGuard() noexcept(false);

private:
    Mutex &mutex_;
};

/// One unnamed auto-reset event, clear at first: a `set` lets one waiter through, at once or later.
class Event
{
public:
    Event() : handle_(thread_primitives::createAutoResetEvent()) {}
    ~Event() noexcept { handle_.closeWithoutRaising(); }

    void set() { thread_primitives::setEvent(handle()); }
    /// Whether it was set; takes the signal away.
    bool poll() { return thread_primitives::waitForObject(handle(), 0); }

    /// Releases the mutex, which the caller holds, and begins to wait in one step; takes the mutex again
    /// before it returns, also after a timeout. The timed form is false on timeout.
    void wait(Mutex &mutex);
    bool waitFor(Mutex &mutex, unsigned milliseconds);

    HANDLE handle() const { return handle_.get(); }

private:
    thread_primitives::CheckedHandle handle_;
};

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

    /// Waits while somebody drains.
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
