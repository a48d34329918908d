#include "util/code_point.h"
#include "util/platform.h"

#include <chrono>
#include <cstdio>

namespace velmox::platform {

namespace {

thread_local unsigned threadError = 0;

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
    return {utf8ContinuationCount(byte), low, high};
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
        return kReplacementCharacter;
    }
    char32_t c = first & (0x3Fu >> lead.following);
    for (; lead.following != 0; --lead.following, ++at) {
        if (at == length || text[at] < lead.low || text[at] > lead.high) {
            return kReplacementCharacter;
        }
        c = c << 6 | (text[at] & 0x3F);
        lead.low = 0x80;
        lead.high = 0xBF;
    }
    return c;
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
            appendCharacter(out, combineSurrogates(unit, text[at]));
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            appendCharacter(out, kReplacementCharacter);
        } else {
            appendCharacter(out, unit);
        }
    }
}

void appendUtf8AsUtf16(const char *text, std::size_t length, WideStr &out)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    for (std::size_t at = 0; at < length;) {
        appendCharacter(out, nextCodePoint(bytes, length, at));
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
