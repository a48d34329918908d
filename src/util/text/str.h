#pragma once

// Text. Data, configuration, log lines and events are UTF-8 in `Str`; UTF-16 (`WideStr`, `Pathname`) stands
// only where the system's interfaces want it, and `appendUtf16` and `appendUtf8` with their short forms are
// the only bridges. `std::string_view` passes text inside; `StrSegment` does where an interface tells "no
// text" from empty text. Nothing here locks: distinct objects may be used by distinct threads at once.

#include "util/text/basic_text.h"
#include "util/text/char_set.h"

#include <concepts>
#include <cstdarg>
#include <exception>
#include <vector>

/// Lets the compiler check a format against its arguments. The GNU dialect is named because it knows `%m`,
/// which this system's formatting adds to the C run-time library's.
#define VELMOX_PRINTF(fmt_at, args_at) __attribute__((format(gnu_printf, fmt_at, args_at)))

namespace velmox {

class StrSegment;

/// Owned UTF-8 text: the system's type for all data, configuration, log lines and events.
///
/// Order and equality are by bytes. Nothing keeps a `Str` from holding ill-formed UTF-8; operations say what
/// they make of it.
class Str : public BasicText<Str, char>
{
public:
    using BasicText::BasicText;
    using BasicText::compare;
    using BasicText::startsWith;

    /// For a split that ends only with its text.
    static constexpr unsigned kNoLimit = ~0u;

    /// Appends UTF-16 as UTF-8. Half a surrogate becomes U+FFFD. `length` counts 16-bit units.
    void appendUtf16(const char16_t *text, std::size_t length);
    void appendUtf16(const char16_t *cstr) { appendUtf16(cstr, std::char_traits<char16_t>::length(cstr)); }
    static Str fromUtf16(std::u16string_view text);
    /// The same, folded as by `toLower`.
    void appendUtf16Lowered(std::u16string_view text);

    /// Clears, then formats by the C run-time library's format language; `append...` keeps what stands.
    /// Without the sizes z, t, j and hh, which older versions of that library on Windows misread.
    ///
    /// The argument list must not refer to this string's own text.
    void format(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void appendFormat(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void vformat(const char *fmt, std::va_list args);
    void vappendFormat(const char *fmt, std::va_list args);
    static Str fromFormat(const char *fmt, ...) VELMOX_PRINTF(1, 2);

    /// As `format`, with each `%m` standing for the system's text of an error code. That text is inserted
    /// into the format, so a percent sign in it reads as a conversion.
    void formatWithError(unsigned error, const char *fmt, ...) VELMOX_PRINTF(3, 4);
    void formatWithLastError(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void vformatWithError(unsigned error, const char *fmt, std::va_list args);
    static Str fromErrorFormat(unsigned error, const char *fmt, ...) VELMOX_PRINTF(2, 3);
    static Str fromLastErrorFormat(const char *fmt, ...) VELMOX_PRINTF(1, 2);

    /// Appends the system's text of an error code, without its closing line end.
    void appendErrorText(unsigned error);

    /// Append; numbers in decimal, a bool as 1 or 0, a double with six decimals, an exception as its text.
    Str &operator<<(const Str &text) { return append(text); }
    Str &operator<<(std::string_view text) { return append(text); }
    Str &operator<<(const char *text) { return append(text); }
    Str &operator<<(char byte) { return *this += byte; }
    Str &operator<<(const char16_t *text);
    Str &operator<<(const StrSegment &text);
    Str &operator<<(const std::exception &exception) { return append(exception.what()); }
    Str &operator<<(bool value) { return *this += value ? '1' : '0'; }
    Str &operator<<(long long value);
    Str &operator<<(unsigned long long value);
    template <std::integral Integer>
    Str &operator<<(Integer value)
    {
        using Widest = std::conditional_t<std::is_signed_v<Integer>, long long, unsigned long long>;
        return *this << static_cast<Widest>(value);
    }
    Str &operator<<(double value);

    /// First position at or after `from` whose membership in `set` equals `in`; -1 when there is none.
    std::ptrdiff_t findFirst(const CharSet &set, std::size_t from, bool in) const;
    bool startsWith(const char *text, std::size_t length) const { return startsWith({text, length}); }
    bool equals(const char *text) const { return view() == text; }
    /// Replaces left to right, resuming behind what was put in; returns the count. An empty `find` does
    /// nothing.
    std::size_t replaceAll(const Str &find, const Str &with);
    /// Overwrites each member byte and returns how many there were.
    std::size_t replaceChars(const CharSet &set, char with);
    /// Removes members of the set at the chosen ends.
    void trim(const CharSet &set = CharSet::blanks(), bool left = true, bool right = true);
    Str trimmed(const CharSet &set = CharSet::blanks(), bool left = true, bool right = true) const
    {
        return trimmedView(view(), set, left, right);
    }
    /// Removes the first and the last byte when both equal `quote`; one lone quote stays.
    void unquote(char quote);
    /// In one allocation.
    static Str concat(const Str &a, const Str &b);

    /// By the Unicode standard's table of well-formed sequences: no overlong form, no surrogate, nothing
    /// beyond U+10FFFF. Empty text is valid.
    static bool isValidUtf8(const char *text, std::size_t length);
    /// Decodes in place; false, with the text as it was, when the decoded bytes are not valid UTF-8.
    bool urlDecode();

    /// Order over characters folded by the Unicode case table: -1, 0 or 1. Ill-formed bytes count as
    /// characters.
    static int compareCaseless(const char *a, std::size_t aLength, const char *b, std::size_t bLength);
    int compareCaseless(std::string_view other) const
    {
        return compareCaseless(data(), size(), other.data(), other.size());
    }

    /// Appends the folded text to `out`, which must be another string.
    void toLower(Str &out) const;
    void toUpper(Str &out) const;
    Str lowered() const;
    Str uppered() const;

    /// The whole text as a number, or `dflt` when it is empty, has anything left over, or is out of range. By
    /// the rule of the C run-time library: white space may stand in front, but not behind.
    long long toInt64(long long dflt, int base = 10) const;
    unsigned long long toUInt64(unsigned long long dflt, int base = 10) const;
    int toInt(int dflt, int base = 10) const;

    /// True for "t", "true", "yes", "1", false for "f", "false", "no", "0", in any ASCII case. The first form
    /// returns whether the text is one of these.
    bool toBool(bool &out) const;
    bool toBool(bool ifEmpty, bool ifInvalid) const;
};

using StrVector = std::vector<Str>;

/// The texts of a container, with a separator between them; empty ones in front count for nothing.
template <class Texts>
Str joined(const Texts &texts, std::string_view separator)
{
    Str all;
    for (const Str &text : texts) {
        all << (all.empty() ? std::string_view() : separator) << text;
    }
    return all;
}

/// Ends an argument list also when an exception leaves the function that began it.
struct ArgumentListEnd
{
    std::va_list &args;
    ~ArgumentListEnd() { va_end(args); }
};

} // namespace velmox
