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

} // namespace velmox
