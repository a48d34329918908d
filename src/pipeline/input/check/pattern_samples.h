#pragma once

#include "pipeline/input/check/pattern_syntax.h"

namespace velmox {

// Texts made from a pattern, to try out what it does, and a trial of how long it takes. No text is proven to
// match: whoever uses them asks the pattern itself, as the monitor does.

/// A few texts that should match, first the shortest ones, one for each way through alternatives. None when
/// there is a part that no text is known for.
StrVector sampleTexts(const PatternPart &whole);

/// Texts of which any match begins with one; the empty text stands for any beginning.
StrVector beginnings(const PatternPart &whole);

/// Whether something that is repeated often holds something that may come more or less often, or alternatives
/// that can begin alike.
bool hasNestedRepeats(const PatternPart &whole);

/// Texts of about `length` bytes on which nested repeats may have much to try: what comes before them, then
/// what they repeat as often as there is room, or once too seldom, and something else at the end.
StrVector worstTexts(const PatternPart &whole, std::size_t length);

/// How a pattern fared on a text.
struct PatternTrial
{
    double milliseconds = 0;
    /// Of the text, in bytes.
    std::size_t length = 0;
    /// Whether PCRE gave up at its limit of steps, which the monitor takes for no match.
    bool gaveUp = false;
};

/// How a filter tests its pattern against a text.
enum class TrialMode
{
    Whole,  ///< as `hive`
    Search, ///< as `proc`
};

/// Takes the longest that the pattern needs on one of the texts, with the machine code and the limits that
/// the monitor uses. It runs the pattern, so it takes a few times what the monitor would. All zeros when the
/// pattern does not compile.
PatternTrial worstTrial(const Str &pattern, TrialMode mode, const StrVector &texts);

} // namespace velmox
