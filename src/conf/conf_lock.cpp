#include "conf/conf_lock.h"

#include "util/logger.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <vector>

namespace velmox {

namespace {

Logger log("ConfLock");

std::atomic<unsigned> violations{0};

/// In the order in which this thread took them; a lock taken twice stands here twice.
thread_local std::vector<const ConfLock *> held;

void reportBrokenOrder(const ConfLock &taken, const ConfLock &later)
{
    violations.fetch_add(1, std::memory_order_relaxed);
    log.error("Lock of rank %d taken while holding one of rank %d", static_cast<int>(taken.rank()),
              static_cast<int>(later.rank()));
    assert(!"locks taken out of order");
}

} // namespace

void ConfLock::lock()
{
    const bool again = std::find(held.begin(), held.end(), this) != held.end();
    // The last one held need not be of the highest rank: an early one may have been taken again.
    const auto later =
        std::find_if(held.begin(), held.end(), [this](const ConfLock *lock) { return lock->rank_ >= rank_; });
    if (!again && later != held.end()) {
        reportBrokenOrder(*this, **later);
    }
    mutex_.lock();
    held.push_back(this);
}

void ConfLock::unlock()
{
    const auto last = std::find(held.rbegin(), held.rend(), this);
    assert(last != held.rend());
    held.erase(std::next(last).base());
    mutex_.unlock();
}

unsigned ConfLock::orderViolations()
{
    return violations.load(std::memory_order_relaxed);
}

} // namespace velmox
