#pragma once

#include "util/text/str.h"

#include <cstddef>
#include <string_view>

// What stands for a byte in XML, both ways: entities that are read, and those that are written.
namespace velmox {

/// What an `&` stands for, and how many bytes it takes with its name. A length of 0 says that the bytes at
/// hand end inside the entity.
struct XmlEntity
{
    char32_t codePoint;
    std::size_t length;
};

/// Reads the entity at the front of `bytes`, which begin with `&`.
///
/// The five named entities, in any ASCII case, and decimal and hexadecimal references up to U+10FFFF are
/// known; any other form is a plain `&` of one byte. `complete` says that no more bytes of the token can
/// follow: then an entity without its `;` is a plain `&` too.
XmlEntity readXmlEntity(std::string_view bytes, bool complete);

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
