#include "util/thread/locks.h"

#include <exception>

namespace velmox {

Mutex::Mutex() : handle_(CreateMutexA(nullptr, FALSE, nullptr))
{
    if (!handle_.isValid()) {
        thread_primitives::reportFailure("CreateMutex");
    }
}

void Mutex::unlock()
{
    if (!ReleaseMutex(handle_.get())) {
        thread_primitives::reportFailure("ReleaseMutex");
    }
}

// A second exception while one is on its way would end the process; the first one is the one to tell.
MutexGuard::~MutexGuard() noexcept(false)
{
    try {
        mutex_.unlock();
    } catch (...) {
        if (std::uncaught_exceptions() == 0) {
            throw;
        }
    }
}

void Event::wait(Mutex &mutex)
{
    thread_primitives::signalAndWait(mutex.handle(), handle_.get());
    mutex.lock();
}

bool Event::waitFor(Mutex &mutex, unsigned milliseconds)
{
    const bool woken = thread_primitives::signalAndWait(mutex.handle(), handle_.get(), milliseconds);
    mutex.lock();
    return woken;
}

UsageCount::Drained::Drained(UsageCount &count) : guard_(count.mutex_)
{
    // The event may still be set from a time when nobody waited, so that the count is what is asked.
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
