#include "util/time/time_format_letters.h"

#include <algorithm>
#include <iterator>

namespace velmox::time_format {

namespace {

constexpr Letter kLetters[] = {
    {'Y', Kind::Year, Sort::Number, Padding::Zeros, 4},
    {'o', Kind::Year, Sort::Number, Padding::Zeros, 4},
    {'C', Kind::Century, Sort::Number, Padding::Zeros, 2},
    {'y', Kind::YearOfCentury, Sort::Number, Padding::Zeros, 2},
    {'G', Kind::IsoYear, Sort::Number, Padding::Zeros, 4},
    {'g', Kind::IsoYearOfCentury, Sort::Number, Padding::Zeros, 2},
    {'m', Kind::Month, Sort::Number, Padding::Zeros, 2},
    {'d', Kind::DayOfMonth, Sort::Number, Padding::Zeros, 2},
    {'e', Kind::DayOfMonth, Sort::Number, Padding::Spaces, 2},
    {'H', Kind::Hour24, Sort::Number, Padding::Zeros, 2},
    {'k', Kind::Hour24, Sort::Number, Padding::Spaces, 2},
    {'I', Kind::Hour12, Sort::Number, Padding::Zeros, 2},
    {'l', Kind::Hour12, Sort::Number, Padding::Spaces, 2},
    {'M', Kind::Minute, Sort::Number, Padding::Zeros, 2},
    {'S', Kind::Second, Sort::Number, Padding::Zeros, 2},
    {'j', Kind::DayOfYear, Sort::Number, Padding::Zeros, 3},
    {'u', Kind::WeekDayFromMonday, Sort::Number, Padding::None, 1},
    {'w', Kind::WeekDayFromSunday, Sort::Number, Padding::None, 1},
    {'U', Kind::WeekFromSunday, Sort::Number, Padding::Zeros, 2},
    {'W', Kind::WeekFromMonday, Sort::Number, Padding::Zeros, 2},
    {'V', Kind::IsoWeek, Sort::Number, Padding::Zeros, 2},
    {'s', Kind::UnixSeconds, Sort::Number, Padding::None, 0},
    {'z', Kind::Offset, Sort::Number, Padding::Zeros, 5},
    {'a', Kind::WeekDayShort, Sort::Name, Padding::Spaces, 0},
    {'A', Kind::WeekDayFull, Sort::Name, Padding::Spaces, 0},
    {'b', Kind::MonthShort, Sort::Name, Padding::Spaces, 0},
    {'h', Kind::MonthShort, Sort::Name, Padding::Spaces, 0},
    {'B', Kind::MonthFull, Sort::Name, Padding::Spaces, 0},
    {'p', Kind::AmPmUpper, Sort::Name, Padding::Spaces, 0},
    {'P', Kind::AmPm, Sort::Name, Padding::Spaces, 0},
    {'Z', Kind::ZoneName, Sort::Name, Padding::Spaces, 0},
    {'Q', Kind::Fraction, Sort::Fraction, Padding::Zeros, 3},
    {'f', Kind::Fraction, Sort::Fraction, Padding::Zeros, 6},
    {'q', Kind::Fraction, Sort::Fraction, Padding::Zeros, 6},
    {'N', Kind::Fraction, Sort::Fraction, Padding::Zeros, 9},
    {'n', Kind::Separator, Sort::Blank, Padding::Spaces, 0},
    {'t', Kind::Separator, Sort::Blank, Padding::Spaces, 0},
};

// All text between the conversions is found in TimeFormatAtom::kSeparators.
constexpr Composite kComposites[] = {
    {'D', false, "%m/%d/%y"},
    {'x', false, "%m/%d/%y"},
    {'F', false, "%Y-%m-%d"},
    {'R', false, "%H:%M"},
    {'T', false, "%H:%M:%S"},
    {'X', false, "%H:%M:%S"},
    {'r', false, "%I:%M:%S %p"},
    {'v', false, "%e-%b-%Y"},
    {'c', false, "%a %b %e %H:%M:%S %Y"},
    {'+', false, "%a %b %e %H:%M:%S %Z %Y"},
    {'c', true, "%A, %B %-d, %Y, %-H:%M:%S"},
    {'x', true, "%A, %B %-d, %Y"},
};

} // namespace

const Letter *findLetter(char letter)
{
    const auto *found = std::ranges::find(kLetters, letter, &Letter::letter);
    return found == std::end(kLetters) ? nullptr : found;
}

const Composite *findComposite(char letter, bool swapped)
{
    const Composite *plain = nullptr;
    for (const Composite &composite : kComposites) {
        if (composite.letter == letter && composite.swapped == swapped) {
            return &composite;
        }
        if (composite.letter == letter && !composite.swapped) {
            plain = &composite;
        }
    }
    return plain;
}

} // namespace velmox::time_format
