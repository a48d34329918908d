#pragma once

#include "util/text/str.h"

#include <string_view>
#include <vector>

namespace velmox {

/// Every match of a pattern holds at least one of these texts.
using LiteralSet = StrVector;

/// The length of the shortest text of a set that is not empty, in bytes.
std::size_t shortestOf(const LiteralSet &texts);

/// What any match of a pattern must hold: one text of each of the sets, in the order in which they stand in
/// the pattern. Empty when nothing can be said. No set and no text is empty.
///
/// Holds for patterns that are compiled without options. A subject that lacks all texts of a set needs no
/// regular expression to be refused. The pattern must be one that compiles. Of syntax that is not understood
/// here nothing is concluded.
std::vector<LiteralSet> requiredLiterals(const Str &pattern);

/// The alternatives of a pattern: its pieces between bars that stand in no group or class. Views of the text
/// passed in; one at least.
std::vector<std::string_view> alternativesOf(std::string_view pattern);

} // namespace velmox
