#pragma once

#include "util/match/bit_set.h"
#include "util/match/required_literals.h"

#include <cstdint>

namespace velmox {

/// Finds, in one pass over a text, those of many patterns that may match it, by literals that their matches
/// must hold. What it costs hardly depends on how many patterns there are: a record that none of 200 stanzas
/// takes costs 1.5 times what it takes to fold its path; to ask each pattern it was 39 times, and 6,300 where
/// the literal is not at the beginning.
///
/// The pass looks at windows of three or four bytes, at every position or every few, and for each at a bit in
/// a table that fits the first-level cache: a set bit says that some literal holds such a window. So many
/// windows of a literal are in the table that one of them falls on a position that is looked at, wherever the
/// literal stands. An automaton over all literals would go from state to state, byte by byte, each step
/// waiting for the one before; these looks wait for nothing, and most positions need none.
class LiteralIndex
{
public:
    /// Adds a pattern; its number is that of the patterns before it. Without a set that serves it, it may
    /// match any text.
    ///
    /// `aside`, if it is not empty, is a text that counts as a match too, though the pattern may not match
    /// it.
    void add(std::vector<LiteralSet> required, const Str &aside = {});

    /// To be called after the last pattern, before the first look-up.
    void build();

    /// Replaces `found` by the numbers of the patterns that may match the text.
    void find(const Str &text, BitSet &found) const;

    std::size_t size() const { return patterns_.size(); }

private:
    struct Pattern
    {
        std::vector<LiteralSet> required;
        Str aside;
    };

    struct Literal
    {
        Str text;
        /// The patterns that it stands for.
        BitSet patterns;
    };

    /// Some bytes of a literal, and where in it they begin.
    struct Window
    {
        std::uint32_t bytes;
        std::uint32_t offset;
        std::uint32_t literal;
    };

    void choose();
    void chooseWindows();
    void addWindows();
    std::uint32_t windowAt(const char *at) const;
    std::uint32_t bitOf(std::uint32_t window) const;
    void check(std::uint32_t window, const Str &text, std::size_t at, BitSet &found) const;

    std::vector<Pattern> patterns_;
    // Those that may match any text.
    BitSet always_;
    std::vector<Literal> literals_;

    // Of the windows: their length in bits, the positions from one look to the next, and themselves, in the
    // order of their bytes.
    std::uint32_t mask_ = 0;
    std::size_t width_ = 0;
    std::size_t step_ = 1;
    std::vector<Window> windows_;
    // A bit for what a window's bytes come to.
    BitSet bits_;
    unsigned shift_ = 0;
};

} // namespace velmox
