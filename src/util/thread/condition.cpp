#include "util/thread/condition.h"

#include <mutex>

namespace velmox {

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
class Condition::Stay
{
public:
    explicit Stay(Condition &condition) : condition_(condition)
    {
        const std::lock_guard guard(condition_.listsLock_);
        waiter_ = condition_.free_.popFront();
        if (waiter_ == nullptr) {
            waiter_ = new ConditionWaiter;
        }
        condition_.waiting_.pushFront(waiter_);
    }
    ~Stay()
    {
        const std::lock_guard guard(condition_.listsLock_);
        condition_.waiting_.remove(waiter_);
        condition_.free_.pushFront(waiter_);
    }
    Stay(const Stay &) = delete;
    Stay &operator=(const Stay &) = delete;

    HANDLE event() const { return waiter_->event.get(); }

private:
    Condition &condition_;
    ConditionWaiter *waiter_;
};

Condition::~Condition()
{
    if (!thread_primitives::errorsThrow()) {
        return;
    }
    while (ConditionWaiter *waiter = free_.popFront()) {
        delete waiter;
    }
}

void Condition::wait(Mutex &mutex)
{
    const Stay stay(*this);
    thread_primitives::signalAndWait(mutex.handle(), stay.event());
    mutex.lock();
}

bool Condition::waitFor(Mutex &mutex, unsigned milliseconds)
{
    const Stay stay(*this);
    const bool woken = thread_primitives::signalAndWait(mutex.handle(), stay.event(), milliseconds);
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
    for (ConditionWaiter *waiter = waiting_.head(); waiter != nullptr; waiter = waiter->next) {
        thread_primitives::setEvent(waiter->event.get());
    }
}

} // namespace velmox
