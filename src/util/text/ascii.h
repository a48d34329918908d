#pragma once

namespace velmox {

// The ASCII rule for single bytes, whatever the locale: a byte beyond ASCII is no letter and has no case.

constexpr bool isAsciiDigit(char byte)
{
    return byte >= '0' && byte <= '9';
}

constexpr bool isAsciiUpper(char byte)
{
    return byte >= 'A' && byte <= 'Z';
}

constexpr bool isAsciiLower(char byte)
{
    return byte >= 'a' && byte <= 'z';
}

constexpr bool isAsciiAlphanumeric(char byte)
{
    return isAsciiDigit(byte) || isAsciiUpper(byte) || isAsciiLower(byte);
}

// Case as arithmetic, as the two cases differ in one bit: a loop without branches over a text is turned
// by the compiler into one over many bytes at a time.
constexpr char toAsciiLower(char byte)
{
    return static_cast<char>(byte ^ (isAsciiUpper(byte) ? 0x20 : 0));
}

constexpr char toAsciiUpper(char byte)
{
    return static_cast<char>(byte ^ (isAsciiLower(byte) ? 0x20 : 0));
}

} // namespace velmox
