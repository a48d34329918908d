#pragma once

#include "util/thread/locks.h"

namespace velmox {

/// One place to wait at: an auto-reset event, and the links of the list it stands on.
struct ConditionWaiter
{
    thread_primitives::CheckedHandle event{thread_primitives::createAutoResetEvent()};
    ConditionWaiter *next = nullptr;
    ConditionWaiter *previous = nullptr;

    ConditionWaiter() = default;
    ~ConditionWaiter() noexcept { event.closeWithoutRaising(); }
};

/// Doubly linked list through the waiters themselves; it owns nothing.
class ConditionWaiterList
{
public:
    ConditionWaiter *head() const { return head_; }
    void pushFront(ConditionWaiter *waiter);
    void remove(ConditionWaiter *waiter);
    /// Null when the list is empty.
    ConditionWaiter *popFront();

private:
    ConditionWaiter *head_ = nullptr;
};

/// Condition variable over events. The caller of `wait` holds the mutex and tests its predicate in a loop:
/// a waiter that is already woken but still on its way out can take a second signal with it, and a signal
/// that comes as a wait times out is felt by a later wait.
///
/// No thread may wait when it is destroyed. Failures raise `ThreadException`, but for the destructor's, which
/// are logged.
class Condition
{
public:
    Condition() = default;
    Condition(const Condition &) = delete;
    Condition &operator=(const Condition &) = delete;
    ~Condition();

    /// Lets go of the mutex while it waits, in one step, and holds it again when it returns.
    void wait(Mutex &mutex);
    /// False on timeout; the mutex is held all the same.
    bool waitFor(Mutex &mutex, unsigned milliseconds);

    /// Wakes the thread that came last: last come, first served.
    void signal();
    /// Wakes all that wait now.
    void broadcast();

private:
    class WaiterScope;

    /// Taken behind the mutex that a caller holds, and held for the lists alone, never over a wait.
    CriticalSection listsLock_;
    ConditionWaiterList waiting_; // under listsLock_
    ConditionWaiterList free_;    // under listsLock_
};

} // namespace velmox
