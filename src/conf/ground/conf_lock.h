#pragma once

#include <mutex>

namespace velmox {

/// The locks of the configuration store in the order in which a thread may take them.
enum class ConfLockRank
{
    Setups = 0,       ///< making the services of a root
    Write = 10,       ///< one write at a time in the process
    Cache = 20,       ///< a merged view
    Pages = 30,       ///< the register of `PropertyPages` objects
    SharedState = 40, ///< all layers of one type
    Applications = 50,
    MapperManager = 60,
    Mapper = 70,
    UsernameMap = 80,
    Acls = 90,
};

/// A recursive lock with a place in the order of locks. Usable with std::lock_guard.
///
/// Taking one while the thread holds another of the same or a later rank risks a deadlock: it is counted and
/// logged, and stops a debug build.
class ConfLock
{
public:
    explicit ConfLock(ConfLockRank rank) : rank_(rank) {}

    void lock();
    void unlock();
    ConfLockRank rank() const { return rank_; }

    /// How often the order was broken in this process.
    static unsigned orderViolations();

private:
    std::recursive_mutex mutex_;
    const ConfLockRank rank_;
};

} // namespace velmox
