#include "pipeline/input/rules/event_filter_list.h"

#include <algorithm>
#include <unordered_map>

namespace velmox {

namespace {

// Texts whose answers are kept. Operations are a handful of words, and few machines run more processes;
// where one does, what was forgotten is asked again.
constexpr std::size_t kKnownTypes = 64;
constexpr std::size_t kKnownProcesses = 1024;

} // namespace

const BitSet &TestedTexts::passing(const Str &text, const std::vector<RegMonEventFilter *> &filters)
{
    if (last_ != nullptr && last_->first == text) {
        return last_->second;
    }
    if (texts_.size() == capacity_) {
        clear();
    }
    // A set of as many numbers as there are filters, empty at first.
    const auto [entry, isNew] = texts_.try_emplace(text, filters.size());
    if (isNew) {
        for (std::size_t number = 0; number < filters.size(); ++number) {
            if ((filters[number]->*test_)(text)) {
                entry->second.insert(number);
            }
        }
    }
    last_ = &*entry;
    return entry->second;
}

void TestedTexts::clear()
{
    texts_.clear();
    last_ = nullptr;
}

SysMonEventFilterList::SysMonEventFilterList(std::uint64_t resortInterval)
    : SmartFilterList(resortInterval, true), types_(&RegMonEventFilter::matchesType, kKnownTypes),
      processes_(&RegMonEventFilter::matchesProcess, kKnownProcesses)
{
}

void SysMonEventFilterList::addFilter(RegMonEventFilter *filter, bool takeOwnership)
{
    // What was counted by places is written to the filters while the places still mean them.
    writeChecks();
    isPrepared_ = false;
    SmartFilterList::addFilter(filter, takeOwnership);
}

void SysMonEventFilterList::clear()
{
    isPrepared_ = false;
    endsAt_.clear();
    SmartFilterList::clear();
}

const std::vector<SysMonEventFilterList::Filter *> &SysMonEventFilterList::filters() const
{
    writeChecks();
    return SmartFilterList::filters();
}

const std::map<Str, SysMonEventFilterList::Filter *> &SysMonEventFilterList::byName() const
{
    writeChecks();
    return SmartFilterList::byName();
}

bool SysMonEventFilterList::matches(const SysMonFilterableEvent &event)
{
    return matches(event.keyPath, event.type, [&event]() -> const Str & { return event.process; });
}

bool SysMonEventFilterList::matches(const Str &keyPath, const Str &type, const ProcessSource &process)
{
    // The counters decide the new order, so they come first.
    if (isResortDue()) {
        writeChecks();
        resort();
        arrange();
    }
    if (!isPrepared_) {
        prepare();
    }
    if (numbered_.empty()) {
        return false;
    }
    gather(keyPath, type, process);
    const std::size_t place = firstMatch(keyPath);
    ++endsAt_[place];
    if (place == numbered_.size()) {
        return false;
    }
    ++numbered_[numberAt_[place]]->hits;
    return true;
}

void SysMonEventFilterList::prepare()
{
    numbered_.clear();
    keys_ = LiteralIndex();
    for (Filter *filter : SmartFilterList::filters()) {
        auto *one = static_cast<RegMonEventFilter *>(filter); // addFilter takes no other
        numbered_.push_back(one);
        // The text too, since a path that is the same letter for letter passes even where the pattern means
        // something else.
        keys_.add(requiredLiterals(one->hiveText()), one->hiveText());
    }
    keys_.build();
    // Most stanzas leave the process open; if only such are left for a record, its process need not be
    // found.
    takeAnyProcess_ = BitSet(numbered_.size());
    for (std::size_t number = 0; number < numbered_.size(); ++number) {
        if (numbered_[number]->takesAnyProcess()) {
            takeAnyProcess_.insert(number);
        }
    }
    types_.clear();
    processes_.clear();
    endsAt_.assign(numbered_.size() + 1, 0);
    isPrepared_ = true;
    arrange();
}

// Notes the places of the filters. What is known by number stays as it is.
void SysMonEventFilterList::arrange()
{
    if (!isPrepared_) {
        return;
    }
    std::unordered_map<const Filter *, std::uint32_t> numbers;
    for (std::uint32_t number = 0; number < numbered_.size(); ++number) {
        numbers.emplace(numbered_[number], number);
    }
    placeOf_.resize(numbered_.size());
    numberAt_.clear();
    for (const Filter *filter : SmartFilterList::filters()) {
        const std::uint32_t number = numbers.at(filter);
        placeOf_[number] = static_cast<std::uint32_t>(numberAt_.size());
        numberAt_.push_back(number);
    }
}

// A walk that ended at a place has asked the filters up to it. To count that as it happens would touch every
// filter for nearly every record.
void SysMonEventFilterList::writeChecks() const
{
    if (!isPrepared_) {
        return;
    }
    std::uint64_t walks = endsAt_.back();
    for (std::size_t place = numbered_.size(); place-- > 0;) {
        walks += endsAt_[place];
        numbered_[numberAt_[place]]->checks += walks;
    }
    std::ranges::fill(endsAt_, 0);
}

void SysMonEventFilterList::gather(const Str &keyPath, const Str &type, const ProcessSource &process)
{
    // The key comes first: it is at hand, and most records have no filter left behind it. The process comes
    // last and only where it has a say, as its path is looked up for that.
    keys_.find(keyPath, possible_);
    if (possible_.empty()) {
        return;
    }
    possible_ &= types_.passing(type, numbered_);
    if (!possible_.isSubsetOf(takeAnyProcess_)) {
        possible_ &= processes_.passing(process(), numbered_);
    }
}

// The place of the first filter that matches, among those that may; behind all when none does.
std::size_t SysMonEventFilterList::firstMatch(const Str &keyPath) const
{
    const std::size_t number = possible_.next(0);
    if (number == BitSet::kNone) {
        return numbered_.size();
    }
    // Of several the first in the present order is wanted, since its counters are those that rise; one alone
    // needs no walk to be found.
    if (possible_.next(number + 1) != BitSet::kNone) {
        return firstOfMany(keyPath);
    }
    return numbered_[number]->matchesKey(keyPath) ? placeOf_[number] : numbered_.size();
}

std::size_t SysMonEventFilterList::firstOfMany(const Str &keyPath) const
{
    for (std::size_t place = 0; place < numberAt_.size(); ++place) {
        const std::uint32_t number = numberAt_[place];
        if (possible_.contains(number) && numbered_[number]->matchesKey(keyPath)) {
            return place;
        }
    }
    return numbered_.size();
}

} // namespace velmox
