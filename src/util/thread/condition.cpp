#include "util/thread/condition.h"

#include <mutex>

namespace velmox {

// The one to be woken next stands in front: who came last is served first. A woken waiter stays on the list
// until it has the mutex again and takes itself off, so a second signal may hit it in vain.

void ConditionWaiterList::pushFront(ConditionWaiter *waiter)
{
    waiter->previous = nullptr;
    waiter->next = head_;
    if (head_ != nullptr) {
        head_->previous = waiter;
    }
    head_ = waiter;
}

void ConditionWaiterList::remove(ConditionWaiter *waiter)
{
    (waiter->previous != nullptr ? waiter->previous->next : head_) = waiter->next;
    if (waiter->next != nullptr) {
        waiter->next->previous = waiter->previous;
    }
}

ConditionWaiter *ConditionWaiterList::popFront()
{
    ConditionWaiter *waiter = head_;
    if (waiter != nullptr) {
        remove(waiter);
    }
    return waiter;
}

/// A thread's time on the waiting list: a waiter from the free list, or a fresh one, that goes back there.
class Condition::WaiterScope
{
public:
    explicit WaiterScope(Condition &condition) : condition_(condition)
    {
        // Waiters are kept and used again: each has an event of the system, and a wait that made one would be
        // slow.
        const std::lock_guard guard(condition_.listsLock_);
        waiter_ = condition_.free_.popFront();
        if (waiter_ == nullptr) {
            waiter_ = new ConditionWaiter;
        }
        condition_.waiting_.pushFront(waiter_);
    }
    ~WaiterScope()
    {
        const std::lock_guard guard(condition_.listsLock_);
        condition_.waiting_.remove(waiter_);
        condition_.free_.pushFront(waiter_);
    }
    WaiterScope(const WaiterScope &) = delete;
    WaiterScope &operator=(const WaiterScope &) = delete;

    HANDLE event() const { return waiter_->event.get(); }

private:
    Condition &condition_;
    ConditionWaiter *waiter_;
};

Condition::~Condition()
{
    // In the last moments of the process others may still stand on the lists: they are left alone.
    if (!thread_primitives::errorsThrow()) {
        return;
    }
    while (ConditionWaiter *waiter = free_.popFront()) {
        delete waiter;
    }
}

void Condition::wait(Mutex &mutex)
{
    // On the list before the mutex is free: a signal from there on finds the event, whether the wait has
    // begun or not.
    const WaiterScope waiter(*this);
    thread_primitives::signalAndWait(mutex.handle(), waiter.event());
    mutex.lock();
}

bool Condition::waitFor(Mutex &mutex, unsigned milliseconds)
{
    const WaiterScope waiter(*this);
    // A signal that comes between the timeout and the end of this scope stays in the event, where the next to
    // be given this waiter finds it; their loops see that it was for nobody.
    const bool woken = thread_primitives::signalAndWait(mutex.handle(), waiter.event(), milliseconds);
    mutex.lock();
    return woken;
}

void Condition::signal()
{
    const std::lock_guard guard(listsLock_);
    if (waiting_.head() != nullptr) {
        thread_primitives::setEvent(waiting_.head()->event.get());
    }
}

void Condition::broadcast()
{
    const std::lock_guard guard(listsLock_);
    // Nobody is taken off: each waiter does that itself when it has the mutex again.
    for (ConditionWaiter *waiter = waiting_.head(); waiter != nullptr; waiter = waiter->next) {
        thread_primitives::setEvent(waiter->event.get());
    }
}

} // namespace velmox
