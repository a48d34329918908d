#pragma once

#include "pipeline/input/rules/event_filters.h"
#include "util/match/literal_index.h"
#include "util/match/smart_filter_list.h"

#include <functional>
#include <unordered_map>

namespace velmox {

/// Which filters of a list one of their tests lets pass, kept by the text that was tested: the operations are
/// a handful, and most records come from a few processes.
class TestedTexts
{
public:
    using Test = bool (RegMonEventFilter::*)(const Str &text) const;

    /// Forgets all when `capacity` texts are known.
    TestedTexts(Test test, std::size_t capacity) : test_(test), capacity_(capacity) {}

    /// The numbers of the filters in `filters` that let the text pass. Holds until the next call.
    const BitSet &passing(const Str &text, const std::vector<RegMonEventFilter *> &filters);
    void clear();

private:
    struct Hash
    {
        std::size_t operator()(const Str &text) const { return std::hash<std::string_view>()(text); }
    };
    using Texts = std::unordered_map<Str, BitSet, Hash>;

    Test test_;
    std::size_t capacity_;
    Texts texts_;
    // The entry that was asked for last, since records come in rows from one process. Entries of the map
    // stay where they are.
    const Texts::value_type *last_ = nullptr;
};

/// The filters of one group, tried at first in the order of their stanzas. For one thread, as a question
/// changes counters and what is kept of earlier answers.
///
/// Verdicts, counters and order are those of the plain walk that `SmartFilterList` does, but only filters
/// whose literals stand in the key path are asked at all. The walk over 200 stanzas took 39 times as long as
/// to fold the path, and thousands of times where the literal is not at the beginning; with the literals
/// found in one pass it takes one and a half times as long (docs/performance.md).
class SysMonEventFilterList : public SmartFilterList<SysMonFilterableEvent>
{
public:
    /// Gives the process of the event at hand. Called once at most, and only if some filter has to know.
    using ProcessSource = std::function<const Str &()>;

    explicit SysMonEventFilterList(std::uint64_t resortInterval = kResortInterval);

    /// Without ownership the filter outlives the list. To be called before the first question or between
    /// two.
    void addFilter(RegMonEventFilter *filter, bool takeOwnership);
    void clear();

    /// Whether any filter matches. Filters behind the first that does are not counted.
    bool matches(const SysMonFilterableEvent &event);
    /// The same for an event whose process is yet to be found.
    bool matches(const Str &keyPath, const Str &type, const ProcessSource &process);

    /// In the order of evaluation, with their counters as they stand. The filters stay the list's.
    const std::vector<Filter *> &filters() const;
    const std::map<Str, Filter *> &byName() const;

private:
    /// Makes all that is known by number, after filters came or went.
    void prepare();
    void arrange();
    void writeChecks() const;
    /// Puts into `possible_` the filters that key, type and process leave; their key patterns are yet to be
    /// asked.
    void gather(const Str &keyPath, const Str &type, const ProcessSource &process);
    std::size_t firstMatch(const Str &keyPath) const;
    /// The same, going through the places in their order.
    std::size_t firstOfMany(const Str &keyPath) const;

    // By number, which is the place at the time of `prepare`; and the places as they are now. All sets of
    // filters hold numbers, so that a change of the order leaves them as they are.
    std::vector<RegMonEventFilter *> numbered_;
    std::vector<std::uint32_t> placeOf_;
    std::vector<std::uint32_t> numberAt_;
    bool isPrepared_ = false;

    LiteralIndex keys_;
    // Numbers of the filters in which the process has no say.
    BitSet takeAnyProcess_;
    TestedTexts types_;
    TestedTexts processes_;
    // Numbers of the filters that may match the event at hand.
    BitSet possible_;

    // How many walks ended at each place, the last one being that behind all filters, since the filters' own
    // counters were written. Mutable, as whoever looks at the filters has them written first.
    mutable std::vector<std::uint64_t> endsAt_;
};

} // namespace velmox
