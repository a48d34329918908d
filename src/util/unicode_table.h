#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace velmox {

/// A character as the bytes of its UTF-8 form, packed big-endian: U+00B5 is 0xC2B5. Keys sort as code points
/// do.
using Utf8Key = std::uint32_t;

/// The key of U+0080. A smaller key is one byte by itself, or ill-formed.
constexpr Utf8Key kFirstTableKey = 0xC280;

/// One run of code points with equal case property and general category; it ends where the next row begins.
struct UnicodeRow
{
    Utf8Key first;
    /// Bits 29 and 30 give the case kind. The low 24 bits are what a key of an upper-case or lower-case run
    /// is XORed with to give the key of the other case. In a run of pairs an even key is the upper case and
    /// the odd key next to it the lower case. Bits 24 to 28 hold the general category, numbered in
    /// unicode_rows.pl.
    std::uint32_t attributes;
};

/// The rows in order of their keys, from U+0080 on, closed by a sentinel whose key is 0xFFFFFFFF. They are
/// generated from the Unicode character database, version 15.0 in Debian 12, with its simple case mappings.
std::span<const UnicodeRow> unicodeRows();

/// The key of the other case; a key that has none, or is below `kFirstTableKey`, comes back as it is.
Utf8Key lowerCaseKey(Utf8Key key);
Utf8Key upperCaseKey(Utf8Key key);

} // namespace velmox
