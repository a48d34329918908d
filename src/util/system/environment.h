#pragma once

#include "util/text/wide_str.h"

namespace velmox {

/// A variable of this process's environment, empty when it is not set. Throws std::bad_alloc
/// "bad allocation".
WideStr environmentVariable(const char16_t *name);

/// Sets a variable for this process and its children; an empty value removes it, and a failure leaves what
/// stood.
void setEnvironmentVariable(const char16_t *name, const WideStr &value);

} // namespace velmox
