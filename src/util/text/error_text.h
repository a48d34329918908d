#pragma once

#include "util/text/str.h"

namespace velmox {

/// The platform's published English description of a directory service error (0x80005000 to 0x80005014) or a
/// management instrumentation error (0x80041001 to 0x8004108A), which the system's own message table lacks;
/// empty for any other code.
std::string_view componentErrorText(unsigned error);

/// A copy of the format with each `%m` replaced by `errorText`. A `%%` pair is copied whole, so that `%%m`
/// stays. The text is taken as part of the format: a percent sign in it reads as a conversion.
Str expandErrorText(const char *fmt, const Str &errorText);

} // namespace velmox
