#include "util/time/time_format.h"

#include "util/text/ascii.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace velmox {

namespace {

using Atom = TimeFormatAtom;
using Case = Atom::Case;
using Kind = Atom::Kind;
using Padding = Atom::Padding;

/// What a conversion letter stands for.
struct Letter
{
    char letter;
    Kind kind;
    Padding padding;
    std::uint16_t width;
};

struct Composite
{
    char letter;
    bool swapped; ///< the form with the flag `#`
    std::string_view expansion;
};

// The letters of strftime; those that GNU date adds: k, l, P, s and N; and of other formatters o for the
// year, and Q, f and q for fractions of 3, 6 and 6 digits, though to GNU date q is the quarter.
constexpr Letter kLetters[] = {
    {'Y', Kind::Year, Padding::Zeros, 4},
    {'o', Kind::Year, Padding::Zeros, 4},
    {'C', Kind::Century, Padding::Zeros, 2},
    {'y', Kind::YearOfCentury, Padding::Zeros, 2},
    {'G', Kind::IsoYear, Padding::Zeros, 4},
    {'g', Kind::IsoYearOfCentury, Padding::Zeros, 2},
    {'m', Kind::Month, Padding::Zeros, 2},
    {'d', Kind::DayOfMonth, Padding::Zeros, 2},
    {'e', Kind::DayOfMonth, Padding::Spaces, 2},
    {'H', Kind::Hour24, Padding::Zeros, 2},
    {'k', Kind::Hour24, Padding::Spaces, 2},
    {'I', Kind::Hour12, Padding::Zeros, 2},
    {'l', Kind::Hour12, Padding::Spaces, 2},
    {'M', Kind::Minute, Padding::Zeros, 2},
    {'S', Kind::Second, Padding::Zeros, 2},
    {'j', Kind::DayOfYear, Padding::Zeros, 3},
    {'u', Kind::WeekDayFromMonday, Padding::None, 1},
    {'w', Kind::WeekDayFromSunday, Padding::None, 1},
    {'U', Kind::WeekFromSunday, Padding::Zeros, 2},
    {'W', Kind::WeekFromMonday, Padding::Zeros, 2},
    {'V', Kind::IsoWeek, Padding::Zeros, 2},
    {'s', Kind::UnixSeconds, Padding::None, 0},
    {'z', Kind::Offset, Padding::Zeros, 5},
    {'a', Kind::WeekDayShort, Padding::Spaces, 0},
    {'A', Kind::WeekDayFull, Padding::Spaces, 0},
    {'b', Kind::MonthShort, Padding::Spaces, 0},
    {'h', Kind::MonthShort, Padding::Spaces, 0},
    {'B', Kind::MonthFull, Padding::Spaces, 0},
    {'p', Kind::AmPmUpper, Padding::Spaces, 0},
    {'P', Kind::AmPm, Padding::Spaces, 0},
    {'Z', Kind::ZoneName, Padding::Spaces, 0},
    {'Q', Kind::Fraction, Padding::Zeros, 3},
    {'f', Kind::Fraction, Padding::Zeros, 6},
    {'q', Kind::Fraction, Padding::Zeros, 6},
    {'N', Kind::Fraction, Padding::Zeros, 9},
    {'n', Kind::Separator, Padding::Spaces, 0},
    {'t', Kind::Separator, Padding::Spaces, 0},
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

constexpr Letter kOffsetMinutes = {'z', Kind::OffsetMinutes, Padding::Zeros, 4};
constexpr Letter kMilliseconds = {'l', Kind::Fraction, Padding::Zeros, 3};

/// The offsets with one, two and three colons.
constexpr Letter kColonOffsets[] = {
    {'z', Kind::OffsetToMinutes, Padding::Zeros, 0},
    {'z', Kind::OffsetToSeconds, Padding::Zeros, 0},
    {'z', Kind::OffsetShortest, Padding::Zeros, 0},
};

// What the modifiers `E` and `O` may stand in front of. They are for locales with eras and digits of their
// own, and change nothing here, but that `Ez` is the offset in minutes.
constexpr std::string_view kLettersOfE = "YCyz";
constexpr std::string_view kCompositesOfE = "cxX";
constexpr std::string_view kLettersOfO = "ymUWVdwuHIMS";

/// Null when there is none.
const Letter *findLetter(char letter)
{
    const auto *found = std::ranges::find(kLetters, letter, &Letter::letter);
    return found == std::end(kLetters) ? nullptr : found;
}

/// The form with the flag `#` where it is asked for and exists, else the plain one.
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

/// What stands between the percent sign and the letter.
struct Modifiers
{
    Padding padding = Padding::Default;
    Case letterCase = Case::AsIs;
    std::optional<std::uint16_t> width;
    char alternative = 0; ///< `E`, `O` or nothing
    unsigned colons = 0;
};

/// By the order of the enumerators.
bool isName(Kind kind)
{
    return kind >= Kind::WeekDayShort && kind <= Kind::ZoneName;
}

Atom separator(std::string_view text)
{
    return {.kind = Kind::Separator,
            .textOffset = static_cast<std::uint32_t>(Atom::kSeparators.find(text)),
            .textLength = static_cast<std::uint32_t>(text.size())};
}

/// One pass over a format. A composite conversion is read by a parser of its own, one deep: no expansion has
/// another composite in it.
class Parser
{
public:
    Parser(std::string_view format, std::vector<Atom> &atoms, Str &literals)
        : rest_(format), atoms_(atoms), literals_(literals)
    {
    }

    bool parse()
    {
        while (!rest_.empty()) {
            if (rest_.front() != '%') {
                takeText();
            } else if (!takeConversion()) {
                return false;
            }
        }
        return true;
    }

private:
    /// Of the expansion of a composite conversion, whose case flag goes for all its parts.
    Parser(std::string_view expansion, const Parser &outer, Case letterCase)
        : rest_(expansion), atoms_(outer.atoms_), literals_(outer.literals_), composite_(true),
          outerCase_(letterCase)
    {
    }

    void addLiteral(std::string_view text)
    {
        atoms_.push_back({.kind = Kind::Literal,
                          .textOffset = static_cast<std::uint32_t>(literals_.size()),
                          .textLength = static_cast<std::uint32_t>(text.size())});
        literals_.append(text);
    }

    void takeText()
    {
        const std::string_view text = rest_.substr(0, rest_.find('%'));
        rest_.remove_prefix(text.size());
        if (composite_) {
            // The text of an expansion is in kSeparators, so that the literals hold only what the format
            // itself says.
            atoms_.push_back(separator(text));
        } else {
            addLiteral(text);
        }
    }

    bool takeConversion()
    {
        if (rest_.starts_with("%%")) {
            rest_.remove_prefix(2);
            addLiteral("%");
            return true;
        }
        rest_.remove_prefix(1);
        Modifiers modifiers;
        modifiers.letterCase = outerCase_;
        if (!takeFlags(modifiers) || !takeWidth(modifiers)) {
            return false;
        }
        // One only: a second E or O is then taken for the letter, and there is none of that name.
        takeAlternative(modifiers);
        takeColons(modifiers);
        if (rest_.empty()) {
            return false;
        }
        const char letter = rest_.front();
        rest_.remove_prefix(1);
        return addConversion(letter, modifiers);
    }

    bool takeFlags(Modifiers &modifiers)
    {
        Case flag = Case::AsIs;
        for (; !rest_.empty(); rest_.remove_prefix(1)) {
            switch (rest_.front()) {
            case '^':
            case '#': {
                const Case wanted = rest_.front() == '^' ? Case::Upper : Case::Swapped;
                // Both at once contradict each other. The same one twice does no harm.
                if (flag != Case::AsIs && flag != wanted) {
                    return false;
                }
                flag = modifiers.letterCase = wanted;
                break;
            }
            case '-':
            case '_':
            case '0':
                if (modifiers.padding != Padding::Default) {
                    return false;
                }
                modifiers.padding = rest_.front() == '-'   ? Padding::None
                                    : rest_.front() == '_' ? Padding::Spaces
                                                           : Padding::Zeros;
                break;
            default:
                return true;
            }
        }
        return true;
    }

    bool takeWidth(Modifiers &modifiers)
    {
        // What the atom has room for; tested digit by digit, so that nothing wraps.
        constexpr unsigned kLargest = 0xFFFF;
        unsigned width = 0;
        for (; !rest_.empty() && isAsciiDigit(rest_.front()); rest_.remove_prefix(1)) {
            width = width * 10 + static_cast<unsigned>(rest_.front() - '0');
            if (width > kLargest) {
                return false;
            }
            modifiers.width = static_cast<std::uint16_t>(width);
        }
        return true;
    }

    void takeAlternative(Modifiers &modifiers)
    {
        if (!rest_.empty() && (rest_.front() == 'E' || rest_.front() == 'O')) {
            modifiers.alternative = rest_.front();
            rest_.remove_prefix(1);
        }
    }

    void takeColons(Modifiers &modifiers)
    {
        for (; !rest_.empty() && rest_.front() == ':'; rest_.remove_prefix(1)) {
            ++modifiers.colons;
        }
    }

    bool addConversion(char letter, const Modifiers &modifiers)
    {
        // Behind colons only the offset has a meaning, and before the table of letters, where a plain z
        // stands.
        if (modifiers.colons != 0) {
            return letter == 'z' && modifiers.colons <= std::size(kColonOffsets) &&
                   modifiers.alternative == 0 && addField(kColonOffsets[modifiers.colons - 1], modifiers);
        }
        if (const Composite *composite = findComposite(letter, modifiers.letterCase == Case::Swapped)) {
            return addComposite(*composite, modifiers);
        }
        const Letter *field = findLetter(letter);
        if (!field || !mayAlter(modifiers.alternative, letter, kLettersOfE, kLettersOfO)) {
            return false;
        }
        return addField(letter == 'z' && modifiers.alternative == 'E' ? kOffsetMinutes : *field, modifiers);
    }

    static bool mayAlter(char alternative, char letter, std::string_view ofE, std::string_view ofO)
    {
        return alternative == 0 || (alternative == 'E' ? ofE : ofO).find(letter) != std::string_view::npos;
    }

    bool addComposite(const Composite &composite, const Modifiers &modifiers)
    {
        if (modifiers.width || modifiers.padding != Padding::Default ||
            !mayAlter(modifiers.alternative, composite.letter, kCompositesOfE, "")) {
            return false;
        }
        // The flag # has chosen this layout already and must not swap the case of its names too.
        const Case inner = composite.swapped ? Case::AsIs : modifiers.letterCase;
        return Parser(composite.expansion, *this, inner).parse();
    }

    bool addField(const Letter &field, const Modifiers &modifiers)
    {
        // Zeros do not fill up names, and the digits of a fraction are not filled up at all: the width is
        // their number.
        const bool flagFits =
            modifiers.padding == Padding::Default ||
            (modifiers.padding == Padding::Zeros ? !isName(field.kind) : field.kind != Kind::Fraction);
        if (!flagFits) {
            return false;
        }
        Atom atom;
        if (field.kind == Kind::Separator) {
            atom = separator(field.letter == 'n' ? "\n" : "\t");
        }
        atom.kind = field.kind;
        atom.padding = modifiers.padding == Padding::Default ? field.padding : modifiers.padding;
        atom.letterCase = modifiers.letterCase;
        atom.width = modifiers.width.value_or(field.width);
        // With a flag or a width there is no doubt: that is how people ask for the hour.
        if (field.letter == 'l' && isBare(modifiers)) {
            atom.kind = Kind::HourOrMilliseconds;
        }
        atoms_.push_back(atom);
        return true;
    }

    static bool isBare(const Modifiers &modifiers)
    {
        return modifiers.padding == Padding::Default && modifiers.letterCase == Case::AsIs &&
               !modifiers.width;
    }

    std::string_view rest_;
    std::vector<Atom> &atoms_;
    Str &literals_;
    bool composite_ = false;
    Case outerCase_ = Case::AsIs;
};

/// Whether the literal between seconds and their fraction is the usual one.
bool isDecimalMark(const Atom &atom, const Str &literals)
{
    return atom.kind == Kind::Literal && atom.textLength == 1 &&
           (literals[atom.textOffset] == ',' || literals[atom.textOffset] == '.');
}

bool isHour(const Atom &atom)
{
    return atom.kind == Kind::Hour24 || atom.kind == Kind::Hour12 || atom.kind == Kind::HourOrMilliseconds;
}

/// Whether the bare `%l` at `at` means milliseconds: it follows the Unix seconds, or the seconds of a time of
/// day. Seconds behind minutes without any hour are no time of day: there the `%l` must be the hour.
bool meansMilliseconds(const std::vector<Atom> &atoms, const Str &literals, std::size_t at)
{
    std::size_t before = at;
    // At the very beginning a mark has no seconds in front of it.
    if (before > 1 && isDecimalMark(atoms[before - 1], literals)) {
        --before;
    }
    if (before == 0) {
        return false;
    }
    const Kind kind = atoms[before - 1].kind;
    if (kind != Kind::Second) {
        return kind == Kind::UnixSeconds;
    }
    bool hasMinutes = false;
    bool hasHours = false;
    for (std::size_t i = 0; i < atoms.size(); ++i) {
        hasMinutes = hasMinutes || atoms[i].kind == Kind::Minute;
        hasHours = hasHours || (i != at && isHour(atoms[i]));
    }
    return hasHours || !hasMinutes;
}

void decideHoursOrMilliseconds(std::vector<Atom> &atoms, const Str &literals)
{
    // All are decided by the format as it was written, before the first of them changes.
    std::vector<std::size_t> milliseconds;
    for (std::size_t at = 0; at < atoms.size(); ++at) {
        if (atoms[at].kind == Kind::HourOrMilliseconds && meansMilliseconds(atoms, literals, at)) {
            milliseconds.push_back(at);
        }
    }
    for (const std::size_t at : milliseconds) {
        atoms[at].kind = kMilliseconds.kind;
        atoms[at].padding = kMilliseconds.padding;
        atoms[at].width = kMilliseconds.width;
    }
    for (Atom &atom : atoms) {
        if (atom.kind == Kind::HourOrMilliseconds) {
            atom.kind = Kind::Hour12;
        }
    }
}

} // namespace

bool compileTimeFormat(std::string_view format, std::vector<Atom> &atoms, Str &literals)
{
    atoms.clear();
    literals.clear();
    if (!Parser(format, atoms, literals).parse()) {
        return false;
    }
    // A step of its own: what a bare %l means hangs on what stands before it and on all that follows.
    decideHoursOrMilliseconds(atoms, literals);
    return true;
}

} // namespace velmox
