#include "fuzz/fuzz_target.h"
#include "util/match/regex.h"
#include "util/match/required_literals.h"
#include "util/match/string_filters.h"

#include <algorithm>

namespace velmox::fuzz {
namespace {

/// A NUL is escaped as `\\0`, which takes digits behind it for its own.
bool hasDigitBehindNul(std::string_view text)
{
    const std::size_t nul = text.find('\0');
    return nul != text.npos && text.find_first_of("01234567", nul) != text.npos;
}

void checkEscape(const Str &text, const Str &other)
{
    if (hasDigitBehindNul(text)) {
        return;
    }
    Str pattern;
    Regex::escape(text, pattern);
    Regex regex;
    regex.compile(pattern, false, 0);
    require(regex.match(text, nullptr, false, true), "an escaped text matches itself");
    require(regex.match(other, nullptr, false, true) == (other == text), "and nothing else");
    require(regex.match(Str::concat(other, text)), "it is found at the end");
}

void checkRequiredLiterals(const Regex &regex, const Str &pattern, const Str &subject)
{
    if (!regex.finds(subject)) {
        return;
    }
    for (const LiteralSet &texts : requiredLiterals(pattern)) {
        require(std::ranges::any_of(texts, [&](const Str &text) { return subject.contains(text); }),
                "a match holds what the pattern requires");
    }
}

void checkMatch(const Regex &regex, const Str &subject)
{
    RegexMatch match;
    const bool found = regex.match(subject, &match);
    require(found == regex.match(subject), "the groups make no difference");
    const int at = regex.findAt(subject.data(), static_cast<unsigned>(subject.size()), false, false);
    require(found == (at >= 0), "both searches agree");
    require(!found || regex.partialMatch(subject), "a match is a partial match");
    if (regex.match(subject, nullptr, false, true)) {
        require(regex.findAt(subject.data(), static_cast<unsigned>(subject.size()), true, true) == 0,
                "a full match begins at the start");
    }
}

} // namespace

/// The first line is a pattern, the second a subject, both also as plain text.
VELMOX_FUZZ_TARGET(regex)
{
    Input input(bytes);
    const Str pattern(input.line());
    const Str subject(input.line());
    if (!Str::isValidUtf8(pattern.data(), pattern.size()) ||
        !Str::isValidUtf8(subject.data(), subject.size())) {
        return; // subjects must be, and so must what is escaped
    }
    checkEscape(subject, pattern);
    Regex regex;
    try {
        regex.compile(pattern, pattern.size() % 2 == 0, 0);
    } catch (const RegexException &) {
        return;
    }
    checkRequiredLiterals(regex, pattern, subject);
    checkMatch(regex, subject);
}

} // namespace velmox::fuzz
