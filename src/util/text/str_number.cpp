#include "util/text/ascii.h"
#include "util/text/str.h"
#include "util/text/str_segment.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <limits>

namespace velmox {

namespace {

/// The result of a C run-time library conversion over a whole text.
template <class Number>
struct Conversion
{
    Number value;
    bool whole;
    bool inRange;

    explicit operator bool() const { return whole && inRange; }
};

template <class Number>
Conversion<Number> convert(const Str &text, int base, Number (*library)(const char *, char **, int))
{
    char *end = nullptr;
    // The library sets it only when it fails.
    errno = 0;
    const Number value = library(text.c_str(), &end, base);
    const bool inRange = errno != ERANGE;
    // The end is that of the text, not the first NUL: what stands behind a NUL inside is left over.
    return {value, !text.empty() && end == text.c_str() + text.size(), inRange};
}

/// 32 bits wide whatever the width of `long`; a range error is one of the two limits with ERANGE set.
Conversion<int> convertInt(const Str &text, int base)
{
    using Limits = std::numeric_limits<int>;
    const Conversion<long long> wide = convert(text, base, std::strtoll);
    const long long clamped = std::clamp<long long>(wide.value, Limits::min(), Limits::max());
    const bool inRange = wide.inRange && clamped == wide.value;
    if (!inRange) {
        errno = ERANGE;
    }
    return {static_cast<int>(clamped), wide.whole, inRange};
}

/// What the library's conversions skip in front, in the locale "C", whatever the locale is now.
bool isSpace(char byte)
{
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

bool equalsAsciiCaseless(std::string_view a, std::string_view b)
{
    return std::ranges::equal(a, b, {}, toAsciiLower, toAsciiLower);
}

struct BoolWord
{
    std::string_view word;
    bool value;
};

constexpr std::array<BoolWord, 8> kBoolWords{{{"f", false},
                                              {"false", false},
                                              {"no", false},
                                              {"0", false},
                                              {"t", true},
                                              {"true", true},
                                              {"yes", true},
                                              {"1", true}}};

} // namespace

long long Str::toInt64(long long dflt, int base) const
{
    const Conversion<long long> result = convert(*this, base, std::strtoll);
    return result ? result.value : dflt;
}

unsigned long long Str::toUInt64(unsigned long long dflt, int base) const
{
    // The library takes a minus even here, and gives the value modulo 2^64.
    const auto first = std::find_if_not(begin(), end(), isSpace);
    if (first != end() && *first == '-') {
        return dflt;
    }
    const Conversion<unsigned long long> result = convert(*this, base, std::strtoull);
    return result ? result.value : dflt;
}

int Str::toInt(int dflt, int base) const
{
    const Conversion<int> result = convertInt(*this, base);
    return result ? result.value : dflt;
}

bool Str::toBool(bool &out) const
{
    for (const BoolWord &candidate : kBoolWords) {
        if (equalsAsciiCaseless(view(), candidate.word)) {
            out = candidate.value;
            return true;
        }
    }
    return false;
}

bool Str::toBool(bool ifEmpty, bool ifInvalid) const
{
    bool value = empty() ? ifEmpty : ifInvalid;
    toBool(value);
    return value;
}

bool StrSegment::toInt(int &out, int base) const
{
    const Conversion<int> result = convertInt(toStr(), base);
    // Also beyond the range, where it is the nearer limit; the result tells the two apart.
    if (result.whole) {
        out = result.value;
    }
    return static_cast<bool>(result);
}

bool StrSegment::parseUpTo(std::uint64_t limit, std::uint64_t &out) const
{
    const StrSegment digits = trimmed();
    std::uint64_t value = 0;
    for (const char byte : digits) {
        const auto digit = static_cast<std::uint64_t>(byte - '0');
        // Each test keeps the next from wrapping: the first says that `value * 10` fits, the second what may
        // still be added.
        if (!isAsciiDigit(byte) || value > limit / 10 || value * 10 > limit - digit) {
            return false;
        }
        value = value * 10 + digit;
    }
    if (digits.empty()) {
        return false;
    }
    out = value;
    return true;
}

bool StrSegment::parseSignedUpTo(std::int64_t limit, std::int64_t &out) const
{
    StrSegment text = trimmed();
    const bool negative = !text.empty() && text[0] == '-';
    text.removePrefix(negative);
    std::uint64_t magnitude = 0;
    // The least number has a magnitude one above the greatest. The magnitude is trimmed once more on its own:
    // blanks may stand behind the minus.
    if (!text.parseUpTo(static_cast<std::uint64_t>(limit) + negative, magnitude)) {
        return false;
    }
    // Negated while unsigned, as the magnitude of the least number is no signed one.
    out = static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
    return true;
}

} // namespace velmox
