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

void reportBrokenOrder(const ConfLock &taken, const ConfLock &last)
{
    violations.fetch_add(1, std::memory_order_relaxed);
    log.error("Lock of rank %d taken while holding one of rank %d", static_cast<int>(taken.rank()),
              static_cast<int>(last.rank()));
    assert(!"locks taken out of order");
}

} // namespace

void ConfLock::lock()
{
    const bool again = std::find(held.begin(), held.end(), this) != held.end();
    if (!again && !held.empty() && held.back()->rank() >= rank_) {
        reportBrokenOrder(*this, *held.back());
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
