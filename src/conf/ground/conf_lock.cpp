#include "conf/ground/conf_lock.h"

#include "util/log/logger.h"

#include <atomic>
#include <cassert>

namespace velmox {

namespace {

Logger log("ConfLock");

std::atomic<unsigned> violations{0};

/// A lock taken twice stands here twice.
constinit thread_local ThreadList<const ConfLock *> heldLocks;

void reportBrokenOrder(const ConfLock &taken, const ConfLock &later)
{
    violations.fetch_add(1, std::memory_order_relaxed);
    log.error("Lock of rank %d taken while holding one of rank %d", static_cast<int>(taken.rank()),
              static_cast<int>(later.rank()));
}

} // namespace

void ConfLock::lock()
{
    // The last one held need not be of the highest rank: an early one may have been taken again.
    const ConfLock *const *const later =
        heldLocks.findIf([this](const ConfLock *held) { return held->rank_ >= rank_; });
    // Taking what the thread has already waits for nobody, whatever else it holds.
    if (later != nullptr && !heldLocks.contains(this)) {
        reportBrokenOrder(*this, **later);
    }
    // Noted first: that may fail for want of memory, and the lock must not stay taken then.
    heldLocks.add(this);
    mutex_.lock();
}

void ConfLock::unlock()
{
    assert(heldLocks.contains(this));
    heldLocks.remove(this);
    mutex_.unlock();
}

unsigned ConfLock::orderViolations()
{
    return violations.load(std::memory_order_relaxed);
}

} // namespace velmox
