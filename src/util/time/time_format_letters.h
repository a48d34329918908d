#pragma once

#include "util/time/time_format_atom.h"

#include <cstdint>
#include <string_view>

/// The conversions of time formats.
namespace velmox::time_format {

using Kind = TimeFormatAtom::Kind;
using Padding = TimeFormatAtom::Padding;

/// What a conversion letter stands for.
enum class Sort : std::uint8_t
{
    Number,
    Name,
    Fraction,
    Blank, ///< a newline or a tab
};

struct Letter
{
    char letter;
    Kind kind;
    Sort sort;
    Padding padding;
    std::uint16_t width;
};

struct Composite
{
    char letter;
    bool swapped; ///< the form with the flag `#`
    std::string_view expansion;
};

/// Null when there is none.
const Letter *findLetter(char letter);
/// The form with the flag `#` where it is asked for and exists, else the plain one.
const Composite *findComposite(char letter, bool swapped);

inline constexpr Letter kOffsetMinutes = {'z', Kind::OffsetMinutes, Sort::Number, Padding::Zeros, 4};
inline constexpr Letter kMilliseconds = {'l', Kind::Fraction, Sort::Fraction, Padding::Zeros, 3};

/// The offsets with one, two and three colons.
inline constexpr Letter kColonOffsets[] = {
    {'z', Kind::OffsetToMinutes, Sort::Number, Padding::Zeros, 0},
    {'z', Kind::OffsetToSeconds, Sort::Number, Padding::Zeros, 0},
    {'z', Kind::OffsetShortest, Sort::Number, Padding::Zeros, 0},
};

/// What the modifiers `E` and `O` may stand in front of.
inline constexpr std::string_view kLettersOfE = "YCyz";
inline constexpr std::string_view kCompositesOfE = "cxX";
inline constexpr std::string_view kLettersOfO = "ymUWVdwuHIMS";

} // namespace velmox::time_format
