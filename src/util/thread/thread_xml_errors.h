#pragma once

#include "util/text/str.h"

namespace velmox {

/// Points the error functions of libxml2, which keeps them per thread, at a text that grows with each
/// message. The text must live as long as the calling thread uses libxml2.
void collectXmlErrors(Str &errors);

} // namespace velmox
