#pragma once

#include "util/text/str.h"

#include <cstddef>
#include <list>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace velmox {

/// Looks keys up by their exact text.
struct WholeKey
{
    static std::string_view of(std::string_view key) { return key; }
};

/// A map from text that is iterated in the order of insertion.
///
/// `LookUp::of` gives the part of a key that counts when keys are compared; the key itself is kept as it was
/// inserted. Items stay at their addresses until they are erased, and keep them when the map is moved.
/// Finding takes constant time; so does erasing, of what stands in the middle too. For one thread at a time.
template <class Value, class LookUp = WholeKey>
class InsertionOrderedMap
{
public:
    struct Item
    {
        Str key;
        Value value;
    };
    /// The key of an item must not be changed through these.
    using iterator = typename std::list<Item>::iterator;
    using const_iterator = typename std::list<Item>::const_iterator;

    InsertionOrderedMap() = default;
    /// Item by item: the index of the other leads to the other's items and reads their texts.
    InsertionOrderedMap(const InsertionOrderedMap &other)
    {
        index_.reserve(other.size());
        for (const auto &[key, value] : other) {
            insert(key, value);
        }
    }
    /// Items keep their addresses, so that the index goes along as it is.
    InsertionOrderedMap(InsertionOrderedMap &&other) noexcept { swap(other); }
    InsertionOrderedMap &operator=(InsertionOrderedMap other) noexcept
    {
        swap(other);
        return *this;
    }
    ~InsertionOrderedMap() = default;

    bool empty() const { return items_.empty(); }
    std::size_t size() const { return items_.size(); }
    iterator begin() { return items_.begin(); }
    iterator end() { return items_.end(); }
    const_iterator begin() const { return items_.begin(); }
    const_iterator end() const { return items_.end(); }

    /// `end()` when it is not there.
    iterator find(std::string_view key)
    {
        const auto found = index_.find(LookUp::of(key));
        return found == index_.end() ? items_.end() : found->second;
    }
    const_iterator find(std::string_view key) const
    {
        return const_cast<InsertionOrderedMap *>(this)->find(key);
    }

    /// Adds an item at the end unless the key is there; true when it was added. The value is made of what is
    /// given, which stays untouched otherwise.
    template <class... Given>
    std::pair<iterator, bool> insert(std::string_view key, Given &&...given)
    {
        const iterator found = find(key);
        if (found != items_.end()) {
            return {found, false};
        }
        items_.push_back({Str(key), Value(std::forward<Given>(given)...)});
        const iterator added = std::prev(items_.end());
        index_.emplace(LookUp::of(added->key), added);
        return {added, true};
    }

    /// Returns the item behind the one erased.
    iterator erase(iterator item)
    {
        // Before the item, in which the text lies that the index compares.
        index_.erase(LookUp::of(item->key));
        return items_.erase(item);
    }
    /// False when it is not there.
    bool erase(std::string_view key)
    {
        const iterator found = find(key);
        if (found == items_.end()) {
            return false;
        }
        erase(found);
        return true;
    }

    void clear()
    {
        index_.clear();
        items_.clear();
    }
    void swap(InsertionOrderedMap &other) noexcept
    {
        items_.swap(other.items_);
        index_.swap(other.index_);
    }

private:
    std::list<Item> items_;
    /// The texts stand in the items.
    std::unordered_map<std::string_view, iterator> index_;
};

} // namespace velmox
