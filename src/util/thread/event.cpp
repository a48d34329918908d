#include "util/thread/event.h"

namespace velmox {

Event::Event() : handle_(thread_primitives::createAutoResetEvent()) {}

void Event::set()
{
    thread_primitives::setEvent(handle_.get());
}

bool Event::poll()
{
    return thread_primitives::waitForObject(handle_.get(), 0);
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

} // namespace velmox
