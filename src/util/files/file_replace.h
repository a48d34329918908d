#pragma once

#include "util/text/pathname.h"

namespace velmox {

/// Puts the file `from` in the place of `to`, which at any moment holds its old or its new content whole.
/// Across volumes a copy takes the place, and `from` stays: its removal is left to the caller. False, with
/// the reason in the last error, on failure.
bool replaceFile(const Pathname &from, const Pathname &to);

} // namespace velmox
