#include "util/text/ascii.h"
#include "util/text/code_point.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace velmox {

namespace {

/// A character as the bytes of its UTF-8 form, packed big-endian: U+00B5 is 0xC2B5. Keys sort as code points
/// do.
using Utf8Key = std::uint32_t;

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

/// The key of U+0080. A smaller key is one byte by itself, or ill-formed.
constexpr Utf8Key kFirstTableKey = 0xC280;

/// In order of their keys, from U+0080 on, closed by a sentinel.
constexpr UnicodeRow kRows[] = {
#include "unicode_rows.inc"
    // Beyond any key, also that of ill-formed text, whose greatest is a lead of 0xFF and three 0xBF behind
    // it.
    {0xFFFFFFFF, 0},
};

static_assert(kRows[0].first == kFirstTableKey);
static_assert(std::ranges::is_sorted(kRows, {}, &UnicodeRow::first));

constexpr std::uint32_t kKindBits = 0x60000000;
constexpr std::uint32_t kUpperRun = 0x20000000;
constexpr std::uint32_t kLowerRun = 0x40000000;
constexpr std::uint32_t kPairRun = 0x60000000;
constexpr std::uint32_t kMaskBits = 0x00FFFFFF;

/// The attributes of the row that holds the key, which is neither below the first row's nor the sentinel's.
std::uint32_t attributesOf(Utf8Key key)
{
    return std::prev(std::ranges::upper_bound(kRows, key, {}, &UnicodeRow::first))->attributes;
}

/// The key of the other case by the simple mappings of the Unicode character database, version 15.0 in Debian
/// 12. A key that has none, or is below that of U+0080, comes back as it is.
Utf8Key lowerCaseKey(Utf8Key key)
{
    if (key < kFirstTableKey) {
        return key;
    }
    const std::uint32_t attributes = attributesOf(key);
    switch (attributes & kKindBits) {
    // A new row begins where the mask changes, so that one serves all code points of a run.
    case kUpperRun:
        return key ^ (attributes & kMaskBits);
    case kPairRun:
        // The last byte of a sequence carries the low six bits of the code point, so that the key's low bit
        // is the code point's.
        return key | 1;
    default:
        return key;
    }
}

Utf8Key upperCaseKey(Utf8Key key)
{
    if (key < kFirstTableKey) {
        return key;
    }
    const std::uint32_t attributes = attributesOf(key);
    switch (attributes & kKindBits) {
    case kLowerRun:
        return key ^ (attributes & kMaskBits);
    case kPairRun:
        return key & ~Utf8Key{1};
    default:
        return key;
    }
}

constexpr std::size_t kWord = sizeof(std::uint64_t);

std::uint64_t wordAt(const char *text)
{
    // Copied, as a text begins at any address; the compiler makes one load of it.
    std::uint64_t word;
    std::memcpy(&word, text, kWord);
    return word;
}

bool isAscii(char byte)
{
    return (byte & 0x80) == 0;
}

bool isAsciiWord(std::uint64_t word)
{
    return (word & 0x8080808080808080) == 0;
}

bool isContinuation(char byte)
{
    return isUtf8Continuation(static_cast<unsigned char>(byte));
}

/// How many ASCII bytes the text begins with.
std::size_t asciiPrefix(const char *text, std::size_t length)
{
    std::size_t at = 0;
    while (length - at >= kWord && isAsciiWord(wordAt(text + at))) {
        at += kWord;
    }
    while (at < length && isAscii(text[at])) {
        ++at;
    }
    return at;
}

Utf8Key pack(Utf8Key key, char byte)
{
    return key << 8 | static_cast<unsigned char>(byte);
}

/// Appends the bytes of a key, which leading zero bytes are no part of.
void appendKey(Utf8Key key, Str &out)
{
    // Leading alone: behind the first byte of a key no shifted rest is zero any more.
    for (int shift = 24; shift >= 0; shift -= 8) {
        if (key >> shift != 0) {
            out.push_back(static_cast<char>(key >> shift & 0xFF));
        }
    }
}

/// Takes one run off `text`, the lead byte and the continuation bytes behind it, as a key. What ill-formed
/// text has beyond the four bytes of a key begins a run of its own, so that nothing is lost.
Utf8Key takeRun(std::string_view &text)
{
    Utf8Key key = pack(0, text.front());
    std::size_t count = 1;
    while (count < sizeof key && count < text.size() && isContinuation(text[count])) {
        key = pack(key, text[count++]);
    }
    text.remove_prefix(count);
    return key;
}

/// Appends the folded text: ASCII by the stretch, anything else through the table.
template <char foldAscii(char), Utf8Key foldKey(Utf8Key)>
void appendFolded(std::string_view text, Str &out)
{
    out.reserve(out.size() + text.size());
    while (!text.empty()) {
        // Copied as a whole and folded where it lies: appending byte by byte would check the capacity for
        // each, and could not be done in parallel.
        const std::size_t plain = asciiPrefix(text.data(), text.size());
        const std::size_t before = out.size();
        out.append(text.substr(0, plain));
        char *folded = out.data() + before;
        std::transform(folded, folded + plain, folded, [](char byte) { return foldAscii(byte); });
        text.remove_prefix(plain);
        while (!text.empty() && !isAscii(text.front())) {
            appendKey(foldKey(takeRun(text)), out);
        }
    }
}

/// Takes one character off `text` as a key; an ill-formed sequence gives its first byte alone.
Utf8Key takeCharacter(std::string_view &text)
{
    // By the count that the lead announces, not by runs as in folding: an order must not take the stray
    // continuation bytes behind a character for a part of it.
    const std::size_t announced = 1 + utf8ContinuationCount(static_cast<unsigned char>(text.front()));
    Utf8Key key = pack(0, text.front());
    if (announced <= text.size()) {
        const std::string_view following = text.substr(1, announced - 1);
        if (std::ranges::all_of(following, isContinuation)) {
            for (char byte : following) {
                key = pack(key, byte);
            }
            text.remove_prefix(announced);
            return key;
        }
    }
    text.remove_prefix(1);
    return key;
}

Utf8Key caselessKey(Utf8Key key)
{
    return key < 0x80 ? static_cast<Utf8Key>(toAsciiLower(static_cast<char>(key))) : lowerCaseKey(key);
}

int compareCharacters(std::string_view &a, std::string_view &b)
{
    const Utf8Key left = takeCharacter(a);
    const Utf8Key right = takeCharacter(b);
    // Most characters that are compared are the same ones, and need no look into the table.
    if (left == right) {
        return 0;
    }
    const Utf8Key leftFolded = caselessKey(left);
    const Utf8Key rightFolded = caselessKey(right);
    return leftFolded == rightFolded ? 0 : leftFolded < rightFolded ? -1 : 1;
}

/// Takes the equal ASCII words off the front of both.
void skipEqualAscii(std::string_view &a, std::string_view &b)
{
    // Paths that are compared mostly begin alike. Only whole words of ASCII are skipped, so that no character
    // is cut in two.
    const std::size_t common = std::min(a.size(), b.size());
    std::size_t at = 0;
    for (; common - at >= kWord; at += kWord) {
        const std::uint64_t word = wordAt(a.data() + at);
        if (word != wordAt(b.data() + at) || !isAsciiWord(word)) {
            break;
        }
    }
    a.remove_prefix(at);
    b.remove_prefix(at);
}

} // namespace

int Str::compareCaseless(const char *a, std::size_t aLength, const char *b, std::size_t bLength)
{
    std::string_view left(a, aLength);
    std::string_view right(b, bLength);
    skipEqualAscii(left, right);
    // Folded keys are compared as numbers: the order is the same on every machine, whatever its language.
    while (!left.empty() && !right.empty()) {
        if (isAscii(left.front()) && isAscii(right.front())) {
            const char leftByte = toAsciiLower(left.front());
            const char rightByte = toAsciiLower(right.front());
            if (leftByte != rightByte) {
                return leftByte < rightByte ? -1 : 1;
            }
            left.remove_prefix(1);
            right.remove_prefix(1);
        } else if (const int order = compareCharacters(left, right); order != 0) {
            return order;
        }
    }
    return left.empty() ? (right.empty() ? 0 : -1) : 1;
}

void Str::toLower(Str &out) const
{
    appendFolded<toAsciiLower, lowerCaseKey>(view(), out);
}

void Str::toUpper(Str &out) const
{
    appendFolded<toAsciiUpper, upperCaseKey>(view(), out);
}

// Most text is ASCII, and then one pass is enough. Conversion first and folding behind took four times as
// long.
void Str::appendUtf16Lowered(std::u16string_view text)
{
    if (!isAsciiUtf16(text)) {
        fromUtf16(text).toLower(*this);
        return;
    }
    const std::size_t before = size();
    resize(before + text.size());
    char *out = data() + before;
    for (std::size_t i = 0; i < text.size(); ++i) {
        out[i] = toAsciiLower(static_cast<char>(text[i]));
    }
}

Str Str::lowered() const
{
    Str result;
    toLower(result);
    return result;
}

Str Str::uppered() const
{
    Str result;
    toUpper(result);
    return result;
}

} // namespace velmox
