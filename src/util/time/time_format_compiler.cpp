#include "util/time/time_format_compiler.h"

#include "util/text/ascii.h"
#include "util/time/time_format_letters.h"

#include <iterator>
#include <optional>

namespace velmox {

namespace {

using Atom = TimeFormatAtom;
using Case = Atom::Case;
using time_format::Composite;
using time_format::Kind;
using time_format::Letter;
using time_format::Padding;
using time_format::Sort;

/// What stands between the percent sign and the letter.
struct Modifiers
{
    Padding padding = Padding::Default;
    Case letterCase = Case::AsIs;
    std::optional<std::uint16_t> width;
    char alternative = 0; ///< `E`, `O` or nothing
    unsigned colons = 0;
};

/// Where atoms and literals go. Without stores it only counts them.
struct Sink
{
    std::vector<Atom> *atoms = nullptr;
    Str *literals = nullptr;
    std::size_t atomCount = 0;
    std::size_t literalLength = 0;

    void add(const Atom &atom)
    {
        ++atomCount;
        if (atoms) {
            atoms->push_back(atom);
        }
    }
    void addLiteral(std::string_view text)
    {
        add({.kind = Kind::Literal,
             .textOffset = static_cast<std::uint32_t>(literalLength),
             .textLength = static_cast<std::uint32_t>(text.size())});
        literalLength += text.size();
        if (literals) {
            literals->append(text);
        }
    }
};

Atom separator(std::string_view text)
{
    return {.kind = Kind::Separator,
            .textOffset = static_cast<std::uint32_t>(Atom::kSeparators.find(text)),
            .textLength = static_cast<std::uint32_t>(text.size())};
}

class Parser
{
public:
    Parser(std::string_view format, Sink &sink) : rest_(format), sink_(sink) {}

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
    Parser(std::string_view expansion, Sink &sink, Case letterCase)
        : rest_(expansion), sink_(sink), composite_(true), outerCase_(letterCase)
    {
    }

    void takeText()
    {
        const std::string_view text = rest_.substr(0, rest_.find('%'));
        rest_.remove_prefix(text.size());
        if (composite_) {
            sink_.add(separator(text));
        } else {
            sink_.addLiteral(text);
        }
    }

    bool takeConversion()
    {
        if (rest_.starts_with("%%")) {
            rest_.remove_prefix(2);
            sink_.addLiteral("%");
            return true;
        }
        rest_.remove_prefix(1);
        Modifiers modifiers;
        modifiers.letterCase = outerCase_;
        if (!takeFlags(modifiers) || !takeWidth(modifiers)) {
            return false;
        }
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
        if (modifiers.colons != 0) {
            return letter == 'z' && modifiers.colons <= std::size(time_format::kColonOffsets) &&
                   modifiers.alternative == 0 &&
                   addField(time_format::kColonOffsets[modifiers.colons - 1], modifiers);
        }
        if (const Composite *composite =
                time_format::findComposite(letter, modifiers.letterCase == Case::Swapped)) {
            return addComposite(*composite, modifiers);
        }
        const Letter *field = time_format::findLetter(letter);
        if (!field ||
            !mayAlter(modifiers.alternative, letter, time_format::kLettersOfE, time_format::kLettersOfO)) {
            return false;
        }
        return addField(letter == 'z' && modifiers.alternative == 'E' ? time_format::kOffsetMinutes : *field,
                        modifiers);
    }

    static bool mayAlter(char alternative, char letter, std::string_view ofE, std::string_view ofO)
    {
        return alternative == 0 || (alternative == 'E' ? ofE : ofO).find(letter) != std::string_view::npos;
    }

    bool addComposite(const Composite &composite, const Modifiers &modifiers)
    {
        if (modifiers.width || modifiers.padding != Padding::Default ||
            !mayAlter(modifiers.alternative, composite.letter, time_format::kCompositesOfE, "")) {
            return false;
        }
        const Case inner = composite.swapped ? Case::AsIs : modifiers.letterCase;
        return Parser(composite.expansion, sink_, inner).parse();
    }

    bool addField(const Letter &field, const Modifiers &modifiers)
    {
        const bool flagFits =
            modifiers.padding == Padding::Default ||
            (modifiers.padding == Padding::Zeros ? field.sort != Sort::Name : field.sort != Sort::Fraction);
        if (!flagFits) {
            return false;
        }
        Atom atom;
        if (field.sort == Sort::Blank) {
            atom = separator(field.letter == 'n' ? "\n" : "\t");
        }
        atom.kind = field.kind;
        atom.padding = modifiers.padding == Padding::Default ? field.padding : modifiers.padding;
        atom.letterCase = modifiers.letterCase;
        atom.width = modifiers.width.value_or(field.width);
        if (field.letter == 'l' && isBare(modifiers)) {
            atom.kind = Kind::HourOrMilliseconds;
        }
        sink_.add(atom);
        return true;
    }

    static bool isBare(const Modifiers &modifiers)
    {
        return modifiers.padding == Padding::Default && modifiers.letterCase == Case::AsIs &&
               !modifiers.width;
    }

    std::string_view rest_;
    Sink &sink_;
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
    std::vector<std::size_t> milliseconds;
    for (std::size_t at = 0; at < atoms.size(); ++at) {
        if (atoms[at].kind == Kind::HourOrMilliseconds && meansMilliseconds(atoms, literals, at)) {
            milliseconds.push_back(at);
        }
    }
    for (const std::size_t at : milliseconds) {
        atoms[at].kind = time_format::kMilliseconds.kind;
        atoms[at].padding = time_format::kMilliseconds.padding;
        atoms[at].width = time_format::kMilliseconds.width;
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
    Sink counts;
    if (!Parser(format, counts).parse()) {
        return false;
    }
    atoms.clear();
    atoms.reserve(counts.atomCount);
    literals.clear();
    literals.reserve(counts.literalLength);
    Sink stores{.atoms = &atoms, .literals = &literals};
    Parser(format, stores).parse();
    decideHoursOrMilliseconds(atoms, literals);
    return true;
}

} // namespace velmox
