#pragma once

#include "util/text/str.h"

namespace velmox {

/// Whether a hive pattern shows itself to be more than a plain path. The backslash does not show that, as a
/// path holds it doubled.
inline bool hasPatternCharacters(const Str &pattern)
{
    static constexpr CharSet kPatternCharacters("*.+?|(){}[]^$");
    return pattern.findFirst(kPatternCharacters, 0, true) != -1;
}

} // namespace velmox
