#include "pipeline/input/check/raw_escapes.h"

#include "util/text/ascii.h"

#include <algorithm>

namespace velmox {

namespace {

/// Escapes that people put between words, or in front of one, on purpose: `run\s+once`, `\bname`.
constexpr CharSet kCommonEscapes("sbwdh");
/// Escapes of one character, or with an argument, which are hardly ever meant in a path: `Vendor\temp`.
constexpr CharSet kRareEscapes("trnfaevzkgcpxo");

std::size_t wordLength(const Str &pattern, std::size_t from)
{
    std::size_t at = from;
    while (at < pattern.size() && isAsciiAlphanumeric(pattern[at])) {
        ++at;
    }
    return at - from;
}

bool isName(char byte)
{
    return isAsciiAlphanumeric(byte) || byte == '_';
}

/// Whether a root of the registry or a drive is all that stands before.
bool followsRoot(std::string_view before, const HiveNames &hiveNames)
{
    const bool isDrive = before.size() == 2 && before[1] == ':' && isAsciiAlphanumeric(before[0]);
    return isDrive || hiveNames.hiveKeyMap().contains(WideStr::fromUtf8(Str(before).uppered()));
}

/// Whether any text may stand before, as behind `.*`, or one of several: names go on behind a separator
/// there.
bool followsAnything(std::string_view before)
{
    return before.ends_with(".*") || before.ends_with(".+") || before.ends_with(".*?") ||
           before.ends_with(')') || before.ends_with("]+") || before.ends_with("]*");
}

/// Whether the escape goes on in an argument: a hexadecimal number.
bool isArgument(const Str &pattern, const LetterEscape &escape)
{
    const char next = escape.position + 2 < pattern.size() ? pattern[escape.position + 2] : '\0';
    return escape.letter == 'x' && CharSet::hexDigits().contains(next);
}

} // namespace

std::vector<LetterEscape> letterEscapes(const Str &pattern)
{
    std::vector<LetterEscape> escapes;
    for (std::size_t at = 0; at + 1 < pattern.size(); ++at) {
        if (pattern[at] != '\\') {
            continue;
        }
        if (isAsciiAlphanumeric(pattern[at + 1])) {
            escapes.push_back({at, pattern[at + 1]});
        }
        ++at;
    }
    return escapes;
}

bool isLikelySeparator(const Str &pattern, const LetterEscape &escape, const HiveNames &hiveNames)
{
    const std::string_view before = pattern.view().substr(0, escape.position);
    if (followsRoot(before, hiveNames)) {
        return true;
    }
    const char letter = escape.letter;
    const std::size_t word = wordLength(pattern, escape.position + 2);
    const bool followsName = !before.empty() && isName(before.back());
    const std::size_t quote = pattern.view().find("\\Q");
    const bool isQuoted = quote <= escape.position && pattern.contains("\\E");
    if (isArgument(pattern, escape) || isQuoted || letter == 'E') {
        return false;
    }
    if (isAsciiDigit(letter)) {
        // A digit refers to a group. Where the pattern has fewer groups than that, none was meant.
        return (followsName && word > 0) || letter - '0' > std::ranges::count(pattern, '(');
    }
    // `\Software` has a word behind its capital, `\S+` has none.
    if (isAsciiUpper(letter)) {
        return word > 1;
    }
    const bool isFirst = before.empty();
    if (kCommonEscapes.contains(letter)) {
        // Whoever doubles others may have meant this one, unless a name goes on behind the letter: a capital
        // there begins a word of its own.
        const bool isMeant =
            pattern.contains("\\\\") && (word < 2 || isAsciiUpper(pattern[escape.position + 2]));
        return !isMeant && word > 1 &&
               (followsName || ((isFirst || followsAnything(before)) && letter != 'b'));
    }
    return kRareEscapes.contains(letter) ? word > 1 && (followsName || isFirst || followsAnything(before))
                                         : word > 0;
}

bool hasLikelySeparator(const Str &pattern, const HiveNames &hiveNames)
{
    return std::ranges::any_of(letterEscapes(pattern), [&](const LetterEscape &escape) {
        return isLikelySeparator(pattern, escape, hiveNames);
    });
}

bool isPerhapsMeant(const Str &pattern, const LetterEscape &escape, const HiveNames &hiveNames)
{
    // \B stands between the letters of a word, where separators stand between two.
    constexpr CharSet kUsual("BDHSW");
    const std::string_view before = pattern.view().substr(0, escape.position);
    const bool followsName = !before.empty() && isName(before.back());
    const auto separators = std::ranges::count_if(letterEscapes(pattern), [&](const LetterEscape &other) {
        return isLikelySeparator(pattern, other, hiveNames);
    });
    return kUsual.contains(escape.letter) && (escape.letter == 'B' || !followsName) && separators == 1 &&
           !before.ends_with(':') && !followsRoot(before, hiveNames);
}

Str escapedWord(const Str &pattern, const LetterEscape &escape)
{
    return pattern.substr(escape.position, 2 + wordLength(pattern, escape.position + 2));
}

const char *insteadOfFolded(char letter)
{
    struct Folded
    {
        char letter;
        const char *instead;
    };
    // \Z is left out: folded it means nearly the same.
    static constexpr Folded kFolded[] = {
        {'S', "[^\\s]"},
        {'D', "[^\\d]"},
        {'W', "[^\\w]"},
        {'H', "[^\\h]"},
        {'V', "[^\\v]"},
        {'N', "[^\\n]"},
        {'B', "(?!\\b)"},
        {'R', "(?:\\r\\n|[\\r\\n])"},
        {'A', "^"},
        {'P', "a class"},
        {'X', "(?s:.)"},
        {'C', "(?s:.)"},
        {'G', "^"},
        {'K', "what it stands for"},
        {'Q', "a backslash before each special character"},
    };
    for (const Folded &row : kFolded) {
        if (row.letter == letter) {
            return row.instead;
        }
    }
    return nullptr;
}

} // namespace velmox
