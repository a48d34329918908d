#include "util/text/unicode_table.h"

#include <algorithm>
#include <iterator>

namespace velmox {

namespace {

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

} // namespace

Utf8Key lowerCaseKey(Utf8Key key)
{
    if (key < kFirstTableKey) {
        return key;
    }
    const std::uint32_t attributes = attributesOf(key);
    switch (attributes & kKindBits) {
    case kUpperRun:
        return key ^ (attributes & kMaskBits);
    case kPairRun:
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

} // namespace velmox
