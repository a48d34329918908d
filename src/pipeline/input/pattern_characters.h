#pragma once

#include "util/char_set.h"

namespace velmox {

/// The characters by which a hive pattern shows itself to be more than a plain path. The backslash is none of
/// them, as a path holds it doubled.
inline constexpr CharSet kPatternCharacters("*.+?|(){}[]^$");

} // namespace velmox
