#pragma once

// conf/ground: what all rooms of the store stand on: its locks and their order, and its exceptions.

#include <algorithm>
#include <mutex>
#include <type_traits>
#include <utility>
#include <vector>

namespace velmox {

/// The locks of the configuration store in the order in which a thread may take them: from what is near the
/// caller to what is near the disk. A reader holds its view while it asks for apps and layers; a mapper,
/// which holds the lock of its files, asks for nothing but the names of users and permissions.
enum class ConfLockRank
{
    Setups = 0,         ///< making the services of a root
    Write = 10,         ///< one write at a time in the process
    Cache = 20,         ///< a merged view
    Pages = 30,         ///< the register of `PropertyPages` objects
    SharedState = 40,   ///< all layers of one type
    Applications = 50,  ///< the register of apps
    MapperManager = 60, ///< which mappers there are
    Mapper = 70,        ///< the files of one mapper
    UsernameMap = 80,   ///< names of users and the safe ones for them
    Acls = 90,          ///< the table of permissions in use
};

/// A recursive lock with a place in the order of locks. Usable with std::lock_guard.
///
/// Taking one while the thread holds another of the same or a later rank risks a deadlock: it is counted and
/// logged, and the lock is taken nevertheless.
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

/// What a thread holds, for a thread_local variable.
///
/// The list exists while there is an entry: MinGW frees the variables of an ending thread before it destroys
/// them, so that none may have a destructor.
template <class Entry>
class ThreadList
{
public:
    bool contains(const Entry &entry) const
    {
        return findIf([&entry](const Entry &held) { return held == entry; }) != nullptr;
    }

    /// The first entry that the predicate accepts; null when there is none.
    template <class Predicate>
    const Entry *findIf(Predicate accepts) const
    {
        if (entries_ == nullptr) {
            return nullptr;
        }
        const auto found = std::find_if(entries_->begin(), entries_->end(), accepts);
        return found == entries_->end() ? nullptr : &*found;
    }

    /// An entry may be held several times.
    void add(const Entry &entry)
    {
        static_assert(std::is_trivially_destructible_v<ThreadList>);
        if (entries_ == nullptr) {
            entries_ = new std::vector<Entry>;
        }
        entries_->push_back(entry);
    }

    /// Removes one of an entry that is held.
    void remove(const Entry &entry)
    {
        const auto last = std::find(entries_->rbegin(), entries_->rend(), entry);
        entries_->erase(std::next(last).base());
        if (entries_->empty()) {
            delete std::exchange(entries_, nullptr);
        }
    }

private:
    std::vector<Entry> *entries_ = nullptr;
};

} // namespace velmox
