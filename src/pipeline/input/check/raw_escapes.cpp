#include "pipeline/input/check/raw_escapes.h"

#include "util/text/ascii.h"

#include <algorithm>
#include <optional>

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

/// How the word behind an escape shows itself to be a name in a path: what comes next is a separator, or the
/// ending of a file's name.
enum class NameEnd
{
    None,
    Separator,
    EscapedEnding, ///< `\.exe`
    Ending,        ///< `.exe`: whoever wrote it did not think of expressions
};

NameEnd nameEnd(const Str &pattern, const LetterEscape &escape)
{
    constexpr std::size_t kLongestEnding = 4;
    std::string_view rest = pattern.view().substr(escape.position + 2);
    rest.remove_prefix(static_cast<std::size_t>(
        std::ranges::find_if_not(rest, [](char byte) { return isName(byte) || byte == '-'; }) -
        rest.begin()));
    if (rest.starts_with("\\\\")) {
        return NameEnd::Separator;
    }
    const bool isEscaped = rest.starts_with('\\');
    rest.remove_prefix(isEscaped ? 1 : 0);
    const std::size_t ending = rest.starts_with('.') ? wordLength(Str(rest), 1) : 0;
    if (ending < 2 || ending > kLongestEnding) {
        return NameEnd::None;
    }
    return isEscaped ? NameEnd::EscapedEnding : NameEnd::Ending;
}

/// Whether `\b` and a word are rather a separator and a name with a b in front than the word at its edge. Few
/// names begin with a b and another consonant than l or r: `\bash\.exe` lacks a backslash, `\bcmd\.exe` none.
bool isNameWithB(const Str &pattern, const LetterEscape &escape)
{
    constexpr CharSet kBehindB("aeioulry");
    const NameEnd end = nameEnd(pattern, escape);
    return end == NameEnd::Ending ||
           (end != NameEnd::None && kBehindB.contains(pattern[escape.position + 2]));
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

/// Whether the escape goes on in an argument: a hexadecimal number. `\x64\\` and `\x86\\` are folders.
bool isArgument(const Str &pattern, const LetterEscape &escape)
{
    const std::string_view behind = pattern.view().substr(escape.position + 2);
    const bool isFolder = behind.starts_with("64\\\\") || behind.starts_with("86\\\\");
    return escape.letter == 'x' && !behind.empty() && CharSet::hexDigits().contains(behind[0]) && !isFolder;
}

/// A bracket that closes nothing, as it is the first member: `[]a]`, `[^]a]`.
bool isFirstOfClass(const Str &pattern, std::size_t start, std::size_t at)
{
    return at == start + (pattern[start + 1] == '^' ? 2 : 1);
}

} // namespace

std::vector<LetterEscape> letterEscapes(const Str &pattern)
{
    std::vector<LetterEscape> escapes;
    std::size_t escapeEnd = 0;
    std::optional<std::size_t> classStart;
    for (std::size_t at = 0; at + 1 < pattern.size(); ++at) {
        const char byte = pattern[at];
        if (byte == '[' && !classStart) {
            classStart = at;
        } else if (byte == ']' && classStart && !isFirstOfClass(pattern, *classStart, at)) {
            classStart.reset();
        } else if (byte == '\\') {
            if (isAsciiAlphanumeric(pattern[at + 1])) {
                const bool followsName = at > escapeEnd && isName(pattern[at - 1]);
                escapes.push_back({at, pattern[at + 1], classStart.has_value(), followsName});
            }
            ++at;
            escapeEnd = at + 1;
        }
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
    const std::size_t quote = pattern.view().find("\\Q");
    const bool isQuoted = quote <= escape.position && pattern.contains("\\E");
    if (escape.isInClass || isArgument(pattern, escape) || isQuoted || letter == 'E') {
        return false;
    }
    if (isAsciiDigit(letter)) {
        // A digit refers to a group. Where the pattern has fewer groups than that, none was meant.
        return (escape.followsName && word > 0) || letter - '0' > std::ranges::count(pattern, '(');
    }
    // `\Software` has a word behind its capital, `\S+` has none.
    if (isAsciiUpper(letter)) {
        return word > 1;
    }
    if (!kCommonEscapes.contains(letter) && !kRareEscapes.contains(letter)) {
        return word > 0;
    }
    const bool isOpen = before.empty() || followsAnything(before);
    const char next = word > 0 ? pattern[escape.position + 2] : '\0';
    // A single letter makes a name with a file's ending alone: `.*\sc\.exe`.
    if (word == 0 ||
        (word == 1 && (!isOpen || isAsciiDigit(next) || nameEnd(pattern, escape) <= NameEnd::Separator))) {
        return false;
    }
    // A capital begins a word of its own, behind what stands for a blank or an edge.
    if (kCommonEscapes.contains(letter) && isAsciiUpper(next)) {
        return false;
    }
    return escape.followsName ||
           (letter == 'b' ? followsAnything(before) && isNameWithB(pattern, escape) : isOpen);
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
    const auto separators = std::ranges::count_if(letterEscapes(pattern), [&](const LetterEscape &other) {
        return isLikelySeparator(pattern, other, hiveNames);
    });
    // \A is of use in front of all.
    const bool isUsual = kUsual.contains(escape.letter) || (escape.letter == 'A' && before.empty());
    return isUsual && (escape.letter == 'B' || !escape.followsName) && separators == 1 &&
           !before.ends_with(':') && !followsRoot(before, hiveNames);
}

Str escapedWord(const Str &pattern, const LetterEscape &escape)
{
    return pattern.substr(escape.position, 2 + wordLength(pattern, escape.position + 2));
}

const char *insteadOfFolded(const LetterEscape &escape)
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
        if (row.letter == escape.letter) {
            return escape.isInClass ? "(?s:.) for any character, or a class without it" : row.instead;
        }
    }
    return nullptr;
}

} // namespace velmox
