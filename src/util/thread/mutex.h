#pragma once

#include "util/thread/thread_primitives.h"

namespace velmox {

/// Lock on one unnamed mutex of the operating system: recursive, and able to be released in the same step
/// that begins a wait. Failures raise `ThreadException`, but for the destructor's, which are logged.
class Mutex
{
public:
    Mutex();
    ~Mutex() noexcept { handle_.closeWithoutRaising(); }

    void lock();
    void unlock();
    /// False when another thread holds it.
    bool tryLock();

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

} // namespace velmox
