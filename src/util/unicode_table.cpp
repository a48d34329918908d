#include "util/unicode_table.h"

#include <algorithm>
#include <iterator>

namespace velmox {

namespace {

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

std::span<const UnicodeRow> unicodeRows()
{
    return kRows;
}

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
