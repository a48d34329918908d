#include "conf/tree/conf_search.h"

#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("ConfSearch");

} // namespace

bool ConfSearch::constrain(Field field, const Str &value)
{
    std::optional<Str> &constraint = constraints_[field];
    if (constraint) {
        log.error("Cannot constrain search with field[%d] = %s; field is already constrained to %s",
                  static_cast<int>(field), value.c_str(), constraint->c_str());
        return false;
    }
    constraint = value;
    return true;
}

bool ConfSearch::matchesLast(const StrVector &segments) const
{
    return segments.size() <= maxLevel_ && fits(segments.size(), segments.back());
}

bool ConfSearch::fits(std::size_t level, const Str &part) const
{
    switch (level) {
    case ConfPathTrie::kUserLevel:
        return !constraints_[User] || part.compareCaseless(*constraints_[User]) == 0;
    case ConfPathTrie::kAppLevel:
        return !constraints_[App] || part == *constraints_[App];
    case ConfPathTrie::kTypeLevel:
        return !constraints_[Type] || part == *constraints_[Type];
    case ConfPathTrie::kStanzaLevel:
        return !stanza_ || part == *stanza_ || part == kDefaultStanza;
    default:
        return true;
    }
}

} // namespace velmox
