#pragma once

#include "util/text/str.h"

#include <string_view>

namespace velmox {

/// What has to stand for a byte of markup in content and attributes; empty for any other byte.
constexpr std::string_view xmlEntityOf(char byte)
{
    switch (byte) {
    case '"':
        return "&quot;";
    case '&':
        return "&amp;";
    case '\'':
        return "&apos;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    default:
        return {};
    }
}

/// The text as it stands in the content of an element, or in an attribute between double quotes, of a UTF-8
/// document that strict parsers accept and give back as it was.
///
/// Only what XML has no way to say comes back as something else: a control byte as `\xNN`, as in events, and
/// ill-formed UTF-8 as U+FFFD.
Str escapedXmlText(const Str &text);
Str escapedXmlAttribute(const Str &text);

} // namespace velmox
