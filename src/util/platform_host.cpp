#include "util/platform.h"
#include "util/str.h"
#include "util/wide_str.h"

#include <chrono>
#include <cstdio>

namespace velmox::platform {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

thread_local unsigned threadError = 0;

void appendCodePoint(char32_t c, Str &out)
{
    const auto tail = [&](int shift) { out.push_back(static_cast<char>(0x80 | (c >> shift & 0x3F))); };
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | c >> 6));
        tail(0);
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | c >> 12));
        tail(6);
        tail(0);
    } else {
        out.push_back(static_cast<char>(0xF0 | c >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

void appendCodePoint(char32_t c, WideStr &out)
{
    if (c < 0x10000) {
        out.push_back(static_cast<char16_t>(c));
    } else {
        out.push_back(static_cast<char16_t>(0xD7C0 + (c >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 | (c & 0x3FF)));
    }
}

/// What a lead byte promises: how many bytes follow, and which range the first of them must lie in.
struct Lead
{
    unsigned following;
    unsigned char low;
    unsigned char high;
};

Lead leadOf(unsigned char byte)
{
    const unsigned char low = byte == 0xE0 ? 0xA0 : byte == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = byte == 0xED ? 0x9F : byte == 0xF4 ? 0x8F : 0xBF;
    if (byte < 0xC2 || byte > 0xF4) {
        return {0, low, high};
    }
    return {byte < 0xE0 ? 1u : byte < 0xF0 ? 2u : 3u, low, high};
}

/// Reads one character at `at` and moves behind it; the longest ill-formed beginning counts as one.
char32_t nextCodePoint(const unsigned char *text, std::size_t length, std::size_t &at)
{
    const unsigned char first = text[at++];
    if (first < 0x80) {
        return first;
    }
    Lead lead = leadOf(first);
    if (lead.following == 0) {
        return kReplacement;
    }
    char32_t c = first & (0x3Fu >> lead.following);
    for (; lead.following != 0; --lead.following, ++at) {
        if (at == length || text[at] < lead.low || text[at] > lead.high) {
            return kReplacement;
        }
        c = c << 6 | (text[at] & 0x3F);
        lead.low = 0x80;
        lead.high = 0xBF;
    }
    return c;
}

bool isHighSurrogate(char16_t unit)
{
    return (unit & 0xFC00) == 0xD800;
}

bool isLowSurrogate(char16_t unit)
{
    return (unit & 0xFC00) == 0xDC00;
}

} // namespace

unsigned lastError()
{
    return threadError;
}

void setLastError(unsigned error)
{
    threadError = error;
}

void appendUtf16AsUtf8(const char16_t *text, std::size_t length, Str &out)
{
    for (std::size_t at = 0; at < length; ++at) {
        const char16_t unit = text[at];
        if (isHighSurrogate(unit) && at + 1 < length && isLowSurrogate(text[at + 1])) {
            ++at;
            appendCodePoint(0x10000 + (char32_t{unit & 0x3FFu} << 10 | (text[at] & 0x3FFu)), out);
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            appendCodePoint(kReplacement, out);
        } else {
            appendCodePoint(unit, out);
        }
    }
}

void appendUtf8AsUtf16(const char *text, std::size_t length, WideStr &out)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    for (std::size_t at = 0; at < length;) {
        appendCodePoint(nextCodePoint(bytes, length, at), out);
    }
}

bool systemMessage(unsigned, WideStr &)
{
    return false;
}

std::uint64_t systemTime()
{
    constexpr std::uint64_t kSecondsTo1970 = 11644473600;
    constexpr std::uint64_t kTicksPerSecond = 10'000'000;
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count();
    return kSecondsTo1970 * kTicksPerSecond + static_cast<std::uint64_t>(nanoseconds) / 100;
}

void writeStandardError(const char *bytes, std::size_t length)
{
    std::fwrite(bytes, 1, length, stderr);
}

} // namespace velmox::platform
