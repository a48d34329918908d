#pragma once

#include <cstddef>
#include <string_view>

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

} // namespace velmox
