#pragma once

#include "util/text/str.h"
#include "util/text/wide_str.h"

namespace velmox {

// What Unicode says of single characters and of the units that carry them: surrogates of UTF-16, leads and
// continuations of UTF-8. All of it is arithmetic; the table of cases is in str_case.cpp.

inline constexpr char32_t kLastCodePoint = 0x10FFFF;
/// Stands for what could not be decoded.
inline constexpr char32_t kReplacementCharacter = 0xFFFD;
/// Tells the encoding at the beginning of a text; elsewhere it is a blank of no width, which Unicode advises
/// against.
inline constexpr char32_t kByteOrderMark = 0xFEFF;

/// The first and the second unit of the pair by which UTF-16 writes a character beyond U+FFFF.
constexpr bool isHighSurrogate(char32_t unit)
{
    return (unit & ~char32_t{0x3FF}) == 0xD800;
}

constexpr bool isLowSurrogate(char32_t unit)
{
    return (unit & ~char32_t{0x3FF}) == 0xDC00;
}

/// The character of a pair; both must be of their kind.
constexpr char32_t combineSurrogates(char32_t high, char32_t low)
{
    return 0x10000 + ((high & 0x3FF) << 10 | (low & 0x3FF));
}

/// Whether the value is a character: in range, and no surrogate.
constexpr bool isScalarValue(char32_t value)
{
    return value <= kLastCodePoint && !isHighSurrogate(value) && !isLowSurrogate(value);
}

/// Looks at every unit instead of stopping at the first that is not ASCII: without a way out the compiler
/// makes of the loop one over many units at a time.
constexpr bool isAsciiUtf16(std::u16string_view text)
{
    unsigned all = 0;
    for (const char16_t unit : text) {
        all |= unit;
    }
    return all < 0x80;
}

/// A byte of the form 10xxxxxx.
constexpr bool isUtf8Continuation(unsigned byte)
{
    return (byte & 0xC0) == 0x80;
}

/// The number of continuation bytes behind a UTF-8 lead of at least 0x80; 0 when it leads nothing.
constexpr unsigned utf8ContinuationCount(unsigned lead)
{
    // 0x80 to 0xBF are continuations, 0xC0 and 0xC1 could only lead overlong forms, and 0xF5 on would lead
    // beyond U+10FFFF.
    if (lead < 0xC2 || lead > 0xF4) {
        return 0;
    }
    return lead <= 0xDF ? 1 : lead <= 0xEF ? 2 : 3;
}

/// Whether a byte may stand right behind a UTF-8 lead. The lead narrows the range of continuation bytes where
/// the rest of it would make an overlong form, a surrogate or a value beyond U+10FFFF.
constexpr bool isUtf8Second(unsigned lead, unsigned byte)
{
    const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    return byte >= low && byte <= high;
}

/// Whether a character read from a sequence with that many continuation bytes needed all of them.
constexpr bool isShortestUtf8(char32_t value, unsigned continuations)
{
    return continuations < 2 || value >= (continuations == 2 ? 0x800u : 0x10000u);
}

/// Hands the bytes of a character's UTF-8 form to `put`, one by one.
template <class Put>
void putUtf8(char32_t value, Put put)
{
    if (value < 0x80) {
        put(static_cast<unsigned char>(value));
        return;
    }
    // The lead begins with 110, 1110 or 11110, a 1 for each byte of the form, and ends in the highest bits.
    const int tail = value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    put(static_cast<unsigned char>((0xF0u << (3 - tail) & 0xFFu) | value >> 6 * tail));
    for (int shift = 6 * (tail - 1); shift >= 0; shift -= 6) {
        put(static_cast<unsigned char>(0x80u | (value >> shift & 0x3Fu)));
    }
}

/// The same with the units of its UTF-16 form.
template <class Put>
void putUtf16(char32_t value, Put put)
{
    if (value < 0x10000) {
        put(static_cast<char16_t>(value));
        return;
    }
    // 0xD7C0 is 0xD800 less the 0x10000 >> 10 that a surrogate pair does not carry.
    put(static_cast<char16_t>(0xD7C0 + (value >> 10)));
    put(static_cast<char16_t>(0xDC00 | (value & 0x3FF)));
}

inline void appendCharacter(Str &out, char32_t value)
{
    putUtf8(value, [&out](unsigned char byte) { out.push_back(static_cast<char>(byte)); });
}

inline void appendCharacter(WideStr &out, char32_t value)
{
    putUtf16(value, [&out](char16_t unit) { out.push_back(unit); });
}

} // namespace velmox
