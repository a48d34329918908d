#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace velmox {

/// A set of bytes, one bit each. Sets are made at compile time; a test is a shift and a mask.
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
    static constexpr const CharSet &blanks() { return kBlanks; }
    static constexpr const CharSet &hexDigits() { return kHexDigits; }
    /// The bytes that make a text worth URL decoding.
    static constexpr const CharSet &urlTriggers() { return kUrlTriggers; }
    /// The bytes that URL encoding leaves alone.
    static constexpr const CharSet &urlUnreserved() { return kUrlUnreserved; }
    static constexpr const CharSet &lineEnds() { return kLineEnds; }

private:
    // Defined below: inside the class, its own type is not complete yet.
    static const CharSet kBlanks, kHexDigits, kUrlTriggers, kUrlUnreserved, kLineEnds;

    std::array<std::uint64_t, 4> words_{};
};

inline constexpr CharSet CharSet::kBlanks(" \t");
inline constexpr CharSet CharSet::kHexDigits("0123456789abcdefABCDEF");
inline constexpr CharSet CharSet::kUrlTriggers("%+");
inline constexpr CharSet
    CharSet::kUrlUnreserved("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~");
inline constexpr CharSet CharSet::kLineEnds("\n\r");

/// The text without the members at the chosen ends. Every trim comes down to this one.
constexpr std::string_view trimmedView(std::string_view text, const CharSet &set = CharSet::blanks(),
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
