#include "conf/tree/conf_search.h"

#include "util/logger.h"

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

bool ConfSearch::matches(const StrVector &segments) const
{
    const auto fits = [&](Field field) {
        if (!constraints_[field] || segments.size() <= field) {
            return true;
        }
        return field == User ? segments[field].compareCaseless(*constraints_[field]) == 0
                             : segments[field] == *constraints_[field];
    };
    return segments.size() <= maxLevel_ && fits(User) && fits(App) && fits(Type);
}

} // namespace velmox
