#pragma once

#include <algorithm>
#include <type_traits>
#include <utility>
#include <vector>

namespace velmox {

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
