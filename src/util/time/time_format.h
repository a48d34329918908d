#pragma once

#include "util/text/str.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace velmox {

/// One piece of a compiled time format: a field of the moment and how it is written, or fixed text. A plain
/// value; which text an atom has, it says by its place in a text that the compiled format owns.
struct TimeFormatAtom
{
    enum class Kind : std::uint8_t
    {
        Literal,   ///< text of the format
        Separator, ///< text of `kSeparators`
        Year,
        Century,
        YearOfCentury,
        IsoYear,
        IsoYearOfCentury,
        Month,
        DayOfMonth,
        Hour24,
        Hour12,
        HourOrMilliseconds, ///< a bare `%l`, until its neighbours have decided
        Minute,
        Second,
        DayOfYear,
        WeekDayFromMonday,
        WeekDayFromSunday,
        WeekFromSunday,
        WeekFromMonday,
        IsoWeek,
        UnixSeconds,
        Fraction,
        Offset,        ///< +hhmm
        OffsetMinutes, ///< +mmm
        // From here on text, which takes the case flags.
        WeekDayShort,
        WeekDayFull,
        MonthShort,
        MonthFull,
        AmPm,
        AmPmUpper,
        ZoneName,
        // From here on the offset with colons.
        OffsetToMinutes,
        OffsetToSeconds,
        OffsetShortest,
    };
    /// What fills a field up to its width.
    enum class Padding : std::uint8_t
    {
        Default,
        Spaces,
        Zeros,
        None,
    };
    /// What the flags `^` and `#` make of a name.
    enum class Case : std::uint8_t
    {
        AsIs,
        Upper,
        Swapped, ///< upper and lower change places
    };

    /// The fixed text that the separators of composite formats, newline and tab are taken from.
    static constexpr std::string_view kSeparators = ", :/-\t\n";

    Kind kind = Kind::Literal;
    Padding padding = Padding::Default;
    Case letterCase = Case::AsIs;
    std::uint16_t width = 0;      ///< least number of bytes; of a fraction, the number of its digits
    std::uint32_t textOffset = 0; ///< into the literals or the separators
    std::uint32_t textLength = 0;
};

/// Compiles a time format into atoms and the literals that they point into. False, with both in no particular
/// state, when the format is not understood.
bool compileTimeFormat(std::string_view format, std::vector<TimeFormatAtom> &atoms, Str &literals);

} // namespace velmox
