#pragma once

#include "util/text/str.h"

#include <optional>
#include <vector>

namespace velmox {

/// A part of a regular expression, as far as it takes to say what a pattern is likely to mean. It owns the
/// parts below it; a tree of at most some hundred levels.
struct PatternPart
{
    enum class Kind
    {
        Text,      ///< one character, as in `text`
        Any,       ///< a dot
        Class,     ///< one character of several, by the pattern in `text`
        Assertion, ///< takes no character
        Sequence,
        Choice,
    };
    /// Of `most`: any number of times.
    static constexpr unsigned kUnlimited = ~0u;
    /// So many turns of something that repeats inside are enough for a trial to show.
    static constexpr unsigned kOften = 3;

    Kind kind = Kind::Sequence;
    Str text;
    /// Of a dot: whether it stands for a line end too.
    bool meetsLineEnds = false;
    std::vector<PatternPart> parts;
    /// How often the part may come in a row.
    unsigned least = 1;
    unsigned most = 1;

    bool isRepeated() const { return most == kUnlimited; }
    /// Whether it may come so often that another repeat within it has much to try.
    bool isRepeatedOften() const { return most >= kOften; }
};

/// A value as messages quote it: a long one by its beginning.
Str shortened(const Str &value);

/// What is wrong with a pattern, in PCRE's words, and where: `missing ) at character 9 of "..."`. Characters
/// count from 0, as PCRE has it; where it is only at the end that something is missing, the last one is
/// named. Empty for a pattern that compiles. It must be folded as it is when the monitor compiles it.
Str patternFault(const Str &pattern);

/// Reads a pattern as PCRE does. Nothing for one with syntax that is not known here, such as references: of
/// those no conclusions are drawn. The pattern must be one that compiles, and folded as the monitor does.
std::optional<PatternPart> parsePattern(const Str &pattern);

/// One pattern for alternatives that each begin with the same root: the root in front, behind it what they
/// differ in, then what all end in. Empty when the roots differ, or an alternative has nothing between: then
/// there is no single pattern to advise.
Str unitedAlternatives(const std::vector<std::string_view> &alternatives);

/// The last part that every match ends in, inside of groups too; null when there is no single one.
const PatternPart *lastPart(const PatternPart &whole);
/// The same for the part before the last.
const PatternPart *secondLastPart(const PatternPart &whole);

/// Whether a part that holds for `test`, or one below it.
template <class Test>
bool anyPart(const PatternPart &part, const Test &test)
{
    if (test(part)) {
        return true;
    }
    for (const PatternPart &child : part.parts) {
        if (anyPart(child, test)) {
            return true;
        }
    }
    return false;
}

} // namespace velmox
