#pragma once

#include "pipeline/input/check/pattern_syntax.h"

namespace velmox {

// Texts made from a pattern, to try out what it does. None is proven to match: whoever uses them asks the
// pattern itself, as the monitor does.

/// A few texts that should match, first the shortest ones, one for each way through alternatives. None when
/// there is a part that no text is known for.
StrVector sampleTexts(const PatternPart &whole);

/// Texts of which any match begins with one; the empty text stands for any beginning.
StrVector beginnings(const PatternPart &whole);

/// Whether something that is repeated without end holds something that is, too.
bool hasNestedRepeats(const PatternPart &whole);

/// Texts of `length` bytes on which nested repeats may have much to try: what comes before them, then what
/// they repeat as often as there is room, and something else at the end.
StrVector worstTexts(const PatternPart &whole, std::size_t length);

} // namespace velmox
