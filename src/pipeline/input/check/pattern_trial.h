#pragma once

#include "util/text/str.h"

namespace velmox {

/// What is wrong with a pattern, in PCRE's words, and where: `missing ) at character 9 of "..."`. Empty for
/// one that compiles. The pattern must be folded as it is when the monitor compiles it.
Str patternFault(const Str &pattern);

/// How a pattern fared on a text.
struct PatternTrial
{
    double milliseconds = 0;
    /// Whether PCRE gave up at its limit of steps, which the monitor takes for no match.
    bool gaveUp = false;
};

/// How a filter tests its pattern against a text.
enum class TrialMode
{
    Whole,  ///< as `hive`
    Search, ///< as `proc`
};

/// Takes the longest that the pattern needs on one of the texts, with the machine code that the monitor uses.
/// Bounded: where PCRE's own limit would let a search go on for minutes, it stops earlier.
PatternTrial worstTrial(const Str &pattern, TrialMode mode, const StrVector &texts);

} // namespace velmox
