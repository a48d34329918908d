#pragma once

#include "util/str.h"

namespace velmox {

/// The text as it stands in the content of an element, or in an attribute between double quotes, of a UTF-8
/// document that strict parsers accept and give back as it was.
///
/// Only what XML has no way to say comes back as something else: a control byte as `\xNN`, as in events, and
/// ill-formed UTF-8 as U+FFFD.
Str escapedXmlText(const Str &text);
Str escapedXmlAttribute(const Str &text);

} // namespace velmox
