#pragma once

#include <cstdint>

namespace velmox {

/// A character as the bytes of its UTF-8 form, packed big-endian: U+00B5 is 0xC2B5. Keys sort as code points
/// do.
using Utf8Key = std::uint32_t;

/// The key of the other case by the simple mappings of the Unicode character database, version 15.0 in Debian
/// 12. A key that has none, or is below that of U+0080, comes back as it is.
Utf8Key lowerCaseKey(Utf8Key key);
Utf8Key upperCaseKey(Utf8Key key);

} // namespace velmox
