#pragma once

#include "util/match/abstract_filter.h"

#include <algorithm>
#include <map>
#include <set>
#include <vector>

namespace velmox {

/// An OR of filters that moves those which match most often to the front.
///
/// The counters are plain integers: a list stays on one thread.
template <class T>
class SmartFilterList
{
public:
    using Filter = AbstractFilter<T>;

    /// The order is made anew when `resortInterval` calls of `matches` have gone by since the last time.
    SmartFilterList(std::uint64_t resortInterval, bool ownsFilters)
        : resortInterval_(resortInterval), ownsFilters_(ownsFilters)
    {
    }
    SmartFilterList(const SmartFilterList &) = delete;
    SmartFilterList &operator=(const SmartFilterList &) = delete;
    virtual ~SmartFilterList() { clear(); }

    /// Appends a filter; null is ignored. A filter of the same name leaves the evaluation, but if the list
    /// owns it, it lives on until `clear`.
    void addFilter(Filter *filter, bool takeOwnership)
    {
        if (filter == nullptr) {
            return;
        }
        // The older one is not deleted: whether anybody else has it, is not known here.
        Filter *&entry = byName_[filter->name];
        std::erase(filters_, entry);
        entry = filter;
        filters_.push_back(filter);
        if (takeOwnership) {
            owned_.insert(filter);
        }
    }

    /// Whether any filter matches. Filters behind the first that does are neither asked nor counted.
    bool matches(const T &item)
    {
        if (isResortDue()) {
            resort();
        }
        for (Filter *filter : filters_) {
            ++filter->checks;
            if (filter->matches(item)) {
                ++filter->hits;
                return true;
            }
        }
        return false;
    }

    /// Empties the list and deletes the filters that it owns.
    void clear()
    {
        byName_.clear();
        filters_.clear();
        for (Filter *filter : owned_) {
            delete filter;
        }
        owned_.clear();
        sinceResort_ = 0;
    }

    /// In the order of evaluation.
    const std::vector<Filter *> &filters() const { return filters_; }
    const std::map<Str, Filter *> &byName() const { return byName_; }
    /// As the maker said. What is deleted in the end, `addFilter` was told for each filter.
    bool ownsFilters() const { return ownsFilters_; }

protected:
    /// Counts a call; true for one before which the order is to be made anew, the first time for the one
    /// behind a whole interval.
    bool isResortDue() { return sinceResort_++ >= resortInterval_; }

    void resort()
    {
        std::sort(filters_.begin(), filters_.end(),
                  [](const Filter *a, const Filter *b) { return ratio(*a) > ratio(*b); });
        sinceResort_ = 0;
    }

private:
    // A filter that was never asked comes last, behind one that never matched.
    static double ratio(const Filter &filter)
    {
        return filter.checks == 0 ? -1.0
                                  : static_cast<double>(filter.hits) / static_cast<double>(filter.checks);
    }

    /// The filters that count.
    std::map<Str, Filter *> byName_;
    /// To be deleted in the end, with those that others have replaced.
    std::set<Filter *> owned_;
    /// In the order of evaluation.
    std::vector<Filter *> filters_;
    std::uint64_t sinceResort_ = 0;
    std::uint64_t resortInterval_;
    bool ownsFilters_;
};

/// After how many calls the lists of this system make their order anew.
inline constexpr std::uint64_t kResortInterval = 10000;

} // namespace velmox
