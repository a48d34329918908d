#include "util/match/regex_match.h"

#include "util/match/regex.h"

namespace velmox {

const StrSegment &RegexMatch::group(std::size_t index) const
{
    if (index == 0) {
        return whole_;
    }
    if (index > groups_.size()) {
        // The words name the place in the vector, one less than the group.
        throw RegexException(Str::fromFormat("IndexOutOfBounds Exception: idx = %u, size = %u",
                                             static_cast<unsigned>(index - 1),
                                             static_cast<unsigned>(groups_.size())));
    }
    return groups_[index - 1];
}

void RegexMatch::namedGroups(std::map<Str, Str> &out) const
{
    out.clear();
    if (!matched_) {
        return;
    }
    for (const auto &[name, number] : regex_->groupNames()) {
        const StrSegment &text = group(number);
        // A group that took no part has no text, not even an empty one.
        if (!text.isNull()) {
            out[name] = text.toStr();
        }
    }
}

void RegexMatch::clear()
{
    groups_.clear();
    subject_ = nullptr;
    matched_ = false;
    whole_ = StrSegment();
}

} // namespace velmox
