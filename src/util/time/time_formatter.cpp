#include "util/time/time_formatter.h"

#include "util/text/ascii.h"
#include "util/time/calendar.h"

#include <charconv>
#include <cstdlib>

namespace velmox {

namespace {

using Atom = TimeFormatAtom;
using Kind = Atom::Kind;
using Padding = Atom::Padding;
using Case = Atom::Case;

char changeCase(char letter, Case letterCase)
{
    return letterCase == Case::Swapped && isAsciiUpper(letter) ? toAsciiLower(letter) : toAsciiUpper(letter);
}

std::int64_t century(std::int64_t year)
{
    return calendar::floorDivide(year, 100);
}

std::int64_t yearOfCentury(std::int64_t year)
{
    return year - century(year) * 100;
}

/// One run of a compiled format.
class Run
{
public:
    Run(Str &out, const StructTm &tm, std::uint32_t ticks, const ZoneSource &source)
        : out_(out), tm_(tm), ticks_(ticks), source_(source)
    {
    }

    void append(const Atom &atom, std::string_view literals)
    {
        switch (atom.kind) {
        case Kind::Literal:
            out_.append(literals.substr(atom.textOffset, atom.textLength));
            break;
        case Kind::Separator:
            appendText(atom, Atom::kSeparators.substr(atom.textOffset, atom.textLength));
            break;
        case Kind::Fraction:
            appendFraction(out_, ticks_, atom.width);
            break;
        case Kind::ZoneName:
            appendZoneName(atom);
            break;
        case Kind::Offset:
        case Kind::OffsetMinutes:
        case Kind::OffsetToMinutes:
        case Kind::OffsetToSeconds:
        case Kind::OffsetShortest:
            appendOffset(atom);
            break;
        case Kind::WeekDayShort:
        case Kind::WeekDayFull:
        case Kind::MonthShort:
        case Kind::MonthFull:
        case Kind::AmPm:
        case Kind::AmPmUpper:
            appendText(atom, name(atom));
            break;
        default:
            appendNumber(atom, number(atom.kind));
            break;
        }
    }

private:
    std::int64_t number(Kind kind) const
    {
        const std::int64_t year = std::int64_t{tm_.year} + 1900;
        switch (kind) {
        case Kind::Year:
            return year;
        case Kind::Century:
            return century(year);
        case Kind::YearOfCentury:
            return yearOfCentury(year);
        case Kind::IsoYear:
            return isoWeek().year;
        case Kind::IsoYearOfCentury:
            return yearOfCentury(isoWeek().year);
        case Kind::Month:
            return std::int64_t{tm_.month} + 1;
        case Kind::DayOfMonth:
            return tm_.dayOfMonth;
        case Kind::Hour24:
            return tm_.hours;
        case Kind::Minute:
            return tm_.minutes;
        case Kind::Second:
            return tm_.seconds;
        case Kind::DayOfYear:
            return std::int64_t{tm_.yearDay} + 1;
        case Kind::WeekDayFromMonday:
            return tm_.weekDay == 0 ? 7 : tm_.weekDay;
        case Kind::WeekDayFromSunday:
            return tm_.weekDay;
        case Kind::WeekFromSunday:
            // The days before the year's first Sunday, or Monday, are in week 0.
            return (std::int64_t{tm_.yearDay} + 7 - tm_.weekDay) / 7;
        case Kind::WeekFromMonday:
            return (std::int64_t{tm_.yearDay} + 7 - (std::int64_t{tm_.weekDay} + 6) % 7) / 7;
        case Kind::IsoWeek:
            return isoWeek().week;
        case Kind::UnixSeconds:
            // A format runs through whatever the zone knows; -1 is what mktime says of such a moment.
            return source_.unixSeconds(tm_).value_or(-1);
        default:
            // Hour12, the only number that is left.
            return hour12();
        }
    }

    std::int64_t hour12() const
    {
        // Rounded down also for hours below 0, which only broken fields have, so that 1 to 12 is all that
        // comes out.
        const std::int64_t hour = tm_.hours - calendar::floorDivide(tm_.hours, 12) * 12;
        return hour == 0 ? 12 : hour;
    }

    calendar::IsoWeek isoWeek() const
    {
        return calendar::isoWeekOf(std::int64_t{tm_.year} + 1900, tm_.yearDay, tm_.weekDay);
    }

    std::string_view name(const Atom &atom) const
    {
        switch (atom.kind) {
        case Kind::WeekDayFull:
            return calendar::weekDayName(tm_.weekDay);
        case Kind::MonthShort:
            return calendar::monthName(tm_.month).substr(0, 3);
        case Kind::MonthFull:
            return calendar::monthName(tm_.month);
        case Kind::AmPm:
            return tm_.hours < 12 ? "am" : "pm";
        case Kind::AmPmUpper:
            return tm_.hours < 12 ? "AM" : "PM";
        default:
            return shortWeekDay(atom.width == 2);
        }
    }

    /// Two letters are a width of their own, not a padded short name.
    std::string_view shortWeekDay(bool twoLetters) const
    {
        const std::string_view full = calendar::weekDayName(tm_.weekDay);
        return full.substr(0, twoLetters && full != "???" ? 2 : 3);
    }

    void appendZoneName(const Atom &atom)
    {
        // Windows has 32 units for a zone's name (TIME_ZONE_INFORMATION), at most 96 bytes of UTF-8.
        char buffer[128];
        appendText(atom, {buffer, source_.zoneName(tm_, buffer, sizeof buffer)});
    }

    void appendText(const Atom &atom, std::string_view text)
    {
        if (atom.padding != Padding::None && text.size() < atom.width) {
            out_.append(atom.width - text.size(), atom.padding == Padding::Zeros ? '0' : ' ');
        }
        if (atom.letterCase == Case::AsIs) {
            out_.append(text);
            return;
        }
        for (const char letter : text) {
            out_.push_back(changeCase(letter, atom.letterCase));
        }
    }

    void appendNumber(const Atom &atom, std::int64_t value)
    {
        char digits[24];
        // Negated while unsigned, as the least number has no positive counterpart.
        const std::uint64_t magnitude = value < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(value)
                                                  : static_cast<std::uint64_t>(value);
        const char *end = std::to_chars(digits, std::end(digits), magnitude).ptr;
        appendSigned(atom, value < 0 ? "-" : "", {digits, end});
    }

    /// Spaces go in front of the sign, zeros behind it.
    void appendSigned(const Atom &atom, std::string_view sign, std::string_view digits)
    {
        const std::size_t length = sign.size() + digits.size();
        const std::size_t fill = length < atom.width ? atom.width - length : 0;
        if (atom.padding == Padding::Spaces) {
            out_.append(fill, ' ');
        }
        out_.append(sign);
        if (atom.padding == Padding::Zeros) {
            out_.append(fill, '0');
        }
        out_.append(digits);
    }

    void appendOffset(const Atom &atom)
    {
        const std::int32_t offset = source_.offsetSeconds(tm_);
        // Better no offset than a wrong one.
        if (offset == ZoneSource::kUnknownOffset) {
            return;
        }
        const std::int64_t seconds = std::abs(std::int64_t{offset});
        appendSigned(atom, offset < 0 ? "-" : "+", offsetDigits(atom.kind, seconds));
    }

    static Str offsetDigits(Kind kind, std::int64_t total)
    {
        const long long hours = total / 3600;
        const long long minutes = total / 60 % 60;
        const long long seconds = total % 60;
        switch (kind) {
        case Kind::Offset:
            // Hours and minutes side by side, as one number that the atom fills up to its width with zeros.
            return Str::fromFormat("%lld", hours * 100 + minutes);
        case Kind::OffsetMinutes:
            return Str::fromFormat("%lld", static_cast<long long>(total / 60));
        case Kind::OffsetToSeconds:
            return Str::fromFormat("%02lld:%02lld:%02lld", hours, minutes, seconds);
        case Kind::OffsetShortest:
            if (seconds != 0) {
                // The shortest form that loses nothing.
                return offsetDigits(Kind::OffsetToSeconds, total);
            }
            return minutes != 0 ? offsetDigits(Kind::OffsetToMinutes, total)
                                : Str::fromFormat("%02lld", hours);
        default:
            return Str::fromFormat("%02lld:%02lld", hours, minutes);
        }
    }

    Str &out_;
    const StructTm &tm_;
    std::uint32_t ticks_;
    const ZoneSource &source_;
};

} // namespace

bool TimeFormatter::compile(const char *fmt)
{
    if (!compileTimeFormat(fmt, atoms_, literals_)) {
        clear();
        return false;
    }
    return true;
}

void TimeFormatter::clear()
{
    atoms_.clear();
    literals_.clear();
}

void TimeFormatter::format(Str &out, const StructTm &tm, std::uint32_t ticks, const ZoneSource &source) const
{
    Run run(out, tm, ticks, source);
    for (const TimeFormatAtom &atom : atoms_) {
        run.append(atom, literals_);
    }
}

} // namespace velmox
