#include "util/thread/mutex.h"

#include <exception>

namespace velmox {

Mutex::Mutex() : handle_(CreateMutexA(nullptr, FALSE, nullptr))
{
    if (!handle_.isValid()) {
        thread_primitives::reportFailure("CreateMutex");
    }
}

void Mutex::lock()
{
    thread_primitives::waitForObject(handle_.get());
}

void Mutex::unlock()
{
    if (!ReleaseMutex(handle_.get())) {
        thread_primitives::reportFailure("ReleaseMutex");
    }
}

bool Mutex::tryLock()
{
    return thread_primitives::waitForObject(handle_.get(), 0);
}

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

} // namespace velmox
