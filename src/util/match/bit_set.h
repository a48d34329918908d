#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmox {

/// A set of numbers below a bound that is given at construction, walked in their order.
class BitSet
{
public:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    explicit BitSet(std::size_t bound = 0) : words_((bound + 63) / 64) {}

    /// Numbers must be below the bound; nothing checks them.
    void insert(std::size_t number) { words_[number / 64] |= std::uint64_t{1} << number % 64; }
    bool contains(std::size_t number) const { return (words_[number / 64] >> number % 64 & 1) != 0; }

    // The other set has the same bound. The loops have no way out, so that they go over many words at a time.
    BitSet &operator|=(const BitSet &other)
    {
        for (std::size_t i = 0; i < words_.size(); ++i) {
            words_[i] |= other.words_[i];
        }
        return *this;
    }
    BitSet &operator&=(const BitSet &other)
    {
        for (std::size_t i = 0; i < words_.size(); ++i) {
            words_[i] &= other.words_[i];
        }
        return *this;
    }
    bool isSubsetOf(const BitSet &other) const
    {
        std::uint64_t beyond = 0;
        for (std::size_t i = 0; i < words_.size(); ++i) {
            beyond |= words_[i] & ~other.words_[i];
        }
        return beyond == 0;
    }

    bool empty() const { return next(0) == kNone; }

    /// The first member that is not less than `from`, or `kNone`.
    std::size_t next(std::size_t from) const
    {
        std::size_t at = from / 64;
        if (at >= words_.size()) {
            return kNone;
        }
        // Members below `from` may stand in its word; they are cut off.
        std::uint64_t word = words_[at] & ~std::uint64_t{0} << from % 64;
        while (word == 0) {
            if (++at == words_.size()) {
                return kNone;
            }
            word = words_[at];
        }
        return at * 64 + static_cast<std::size_t>(std::countr_zero(word));
    }

private:
    std::vector<std::uint64_t> words_;
};

} // namespace velmox
