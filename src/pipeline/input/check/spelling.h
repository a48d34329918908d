#pragma once

#include "util/text/str.h"

#include <set>

namespace velmox {

/// How many letters one has to change, add, leave out or swap with the next to come from one word to the
/// other, in any case.
std::size_t letterChanges(const Str &from, const Str &to);

/// Of the names the one that was likely meant: at most two letters off, of a short word one. Empty for none.
Str nearestName(const Str &word, const std::set<Str> &names);

} // namespace velmox
