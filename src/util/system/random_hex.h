#pragma once

#include "util/text/str.h"

namespace velmox {

/// Appends lower-case hexadecimal digits of OpenSSL's random generator; false, with an error code of the
/// system as the last error, when it has none to give.
bool appendRandomHex(Str &out, unsigned digits);

} // namespace velmox
