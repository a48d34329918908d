#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace velmox {

/// A set of bytes, one bit each.
class CharSet
{
public:
    constexpr CharSet() = default;
    constexpr explicit CharSet(std::string_view members)
    {
        for (char member : members) {
            const auto byte = static_cast<unsigned char>(member);
            words_[byte >> 6] |= std::uint64_t{1} << (byte & 63);
        }
    }

    constexpr bool contains(char member) const
    {
        const auto byte = static_cast<unsigned char>(member);
        return (words_[byte >> 6] >> (byte & 63) & 1) != 0;
    }

    // The sets that many share.

    /// Space and tab: the set of every trim that names none.
    static const CharSet &blanks();
    static const CharSet &hexDigits();
    /// The bytes that make a text worth URL decoding.
    static const CharSet &urlTriggers();
    /// The bytes that URL encoding leaves alone.
    static const CharSet &urlUnreserved();
    static const CharSet &lineEnds();

private:
    std::array<std::uint64_t, 4> words_{};
};

namespace char_sets {
inline constexpr CharSet kBlanks(" \t");
inline constexpr CharSet kHexDigits("0123456789abcdefABCDEF");
inline constexpr CharSet kUrlTriggers("%+");
inline constexpr CharSet kUrlUnreserved("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~");
inline constexpr CharSet kLineEnds("\n\r");
} // namespace char_sets

inline const CharSet &CharSet::blanks()
{
    return char_sets::kBlanks;
}
inline const CharSet &CharSet::hexDigits()
{
    return char_sets::kHexDigits;
}
inline const CharSet &CharSet::urlTriggers()
{
    return char_sets::kUrlTriggers;
}
inline const CharSet &CharSet::urlUnreserved()
{
    return char_sets::kUrlUnreserved;
}
inline const CharSet &CharSet::lineEnds()
{
    return char_sets::kLineEnds;
}

/// The text without the members at the chosen ends. Every trim comes down to this one.
constexpr std::string_view trimmedView(std::string_view text, const CharSet &set = char_sets::kBlanks,
                                       bool left = true, bool right = true)
{
    while (left && !text.empty() && set.contains(text.front())) {
        text.remove_prefix(1);
    }
    while (right && !text.empty() && set.contains(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace velmox
