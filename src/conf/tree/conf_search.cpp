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
    const Str &part = segments.back();
    if (segments.size() > maxLevel_) {
        return false;
    }
    // Names of users count in any case; those of apps, types and stanzas are compared as they are.
    switch (segments.size()) {
    case kUserLevel:
        return !constraints_[User] || part.compareCaseless(*constraints_[User]) == 0;
    case kAppLevel:
        return !constraints_[App] || part == *constraints_[App];
    case kTypeLevel:
        return !constraints_[Type] || part == *constraints_[Type];
    case kStanzaLevel:
        return !stanza_ || part == *stanza_ || part == kDefaultStanza;
    default:
        return true;
    }
}

} // namespace velmox
