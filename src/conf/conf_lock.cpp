#include "conf/conf_lock.h"

#include "util/logger.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <type_traits>
#include <utility>
#include <vector>

namespace velmox {

namespace {

Logger log("ConfLock");

std::atomic<unsigned> violations{0};

/// In the order in which this thread took them; a lock taken twice stands here twice.
/// Exists while there is an entry: MinGW frees the variables of an ending thread before it destroys them, so
/// that none may have a destructor.
thread_local std::vector<const ConfLock *> *heldLocks = nullptr;
static_assert(std::is_trivially_destructible_v<decltype(heldLocks)>);

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
    if (heldLocks == nullptr) {
        heldLocks = new std::vector<const ConfLock *>;
    }
    auto &held = *heldLocks;
    const bool again = std::find(held.begin(), held.end(), this) != held.end();
    // The last one held need not be of the highest rank: an early one may have been taken again.
    const auto later =
        std::find_if(held.begin(), held.end(), [this](const ConfLock *lock) { return lock->rank_ >= rank_; });
    if (!again && later != held.end()) {
        reportBrokenOrder(*this, **later);
    }
    // Noted first: that may fail for want of memory, and the lock must not stay taken then.
    held.push_back(this);
    mutex_.lock();
}

void ConfLock::unlock()
{
    auto &held = *heldLocks;
    const auto last = std::find(held.rbegin(), held.rend(), this);
    assert(last != held.rend());
    held.erase(std::next(last).base());
    if (held.empty()) {
        delete std::exchange(heldLocks, nullptr);
    }
    mutex_.unlock();
}

unsigned ConfLock::orderViolations()
{
    return violations.load(std::memory_order_relaxed);
}

} // namespace velmox
