#pragma once

#include <cstdint>

namespace velmox {

/// The encoding of a text stream, the low byte of its encoding word.
enum class TextEncoding : std::uint8_t
{
    NotKnown = 0,
    Empty = 1, ///< looked for in an input without bytes
    Utf8 = 2,
    Utf16Le = 3,
    Utf16Be = 4,
    Utf32Le = 5,
    Utf32Be = 6,
};

/// A stream's encoding with the form of its text. A writer that is given a reader's word keeps the file's
/// form.
using TextEncodingWord = std::uint32_t;

inline constexpr TextEncodingWord kTextEncodingMask = 0xFF;
/// The text begins with U+FEFF.
inline constexpr TextEncodingWord kByteOrderMarkFlag = 0x8000;
/// Its lines end in CR LF, and not in LF alone.
inline constexpr TextEncodingWord kCrLfFlag = 0x4000;
/// Where readers and writers begin: CR LF until the text says otherwise.
inline constexpr TextEncodingWord kDefaultEncodingWord = kCrLfFlag;

constexpr TextEncoding encodingOf(TextEncodingWord word)
{
    return static_cast<TextEncoding>(word & kTextEncodingMask);
}

constexpr TextEncodingWord withEncoding(TextEncodingWord word, TextEncoding encoding)
{
    return (word & ~kTextEncodingMask) | static_cast<TextEncodingWord>(encoding);
}

} // namespace velmox
