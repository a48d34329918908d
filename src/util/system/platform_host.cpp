#include "util/system/structured_exception.h"
#include "util/text/code_point.h"
#include "util/text/platform.h"

#include <chrono>
#include <cstdio>

namespace velmox {

/// There are no structured exceptions here: a fault is for the sanitizers to report.
void callGuarded(void (*body)(void *), void *argument)
{
    body(argument);
}

namespace platform {

namespace {

thread_local unsigned threadError = 0;

/// Reads one character at `at` and moves behind it. The longest ill-formed beginning counts as one, as the
/// Unicode standard recommends under "substitution of maximal subparts".
char32_t nextCodePoint(const unsigned char *text, std::size_t length, std::size_t &at)
{
    const unsigned char lead = text[at++];
    if (lead < 0x80) {
        return lead;
    }
    const unsigned following = utf8ContinuationCount(lead);
    if (following == 0) {
        return kReplacementCharacter;
    }
    // A lead has 5, 4 or 3 bits of payload, one less for each continuation that it announces.
    char32_t c = lead & (0x3Fu >> following);
    for (unsigned taken = 0; taken < following; ++taken, ++at) {
        const bool fits =
            at < length && (taken == 0 ? isUtf8Second(lead, text[at]) : isUtf8Continuation(text[at]));
        if (!fits) {
            return kReplacementCharacter;
        }
        c = c << 6 | (text[at] & 0x3F);
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

/// Codes are those of Windows, of which this system knows no text: what is written says so, with the number.
bool systemMessage(unsigned, WideStr &)
{
    return false;
}

std::uint64_t systemTime()
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count();
    return kUnixEpoch + static_cast<std::uint64_t>(nanoseconds) / 100;
}

std::uint64_t uptimeMilliseconds()
{
    const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(sinceStart).count());
}

bool localTime(std::int64_t unixSeconds, std::tm &out)
{
    const std::time_t seconds = unixSeconds;
    // The reach of the run-time library of Windows, so that both builds refuse the same moments.
    return unixSeconds >= 0 && unixSeconds <= kLastLocalTime && localtime_r(&seconds, &out) != nullptr;
}

bool localToUnix(std::tm tm, std::int64_t &unixSeconds)
{
    const std::time_t seconds = std::mktime(&tm);
    if (seconds < 0 || seconds > kLastLocalTime) {
        return false;
    }
    unixSeconds = seconds;
    return true;
}

void localZoneName(bool daylight, Str &out)
{
    out << tzname[daylight ? 1 : 0];
}

void writeStandardError(const char *bytes, std::size_t length)
{
    std::fwrite(bytes, 1, length, stderr);
}

} // namespace platform

} // namespace velmox
