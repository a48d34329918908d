#include "pipeline/input/check/pattern_samples.h"

#include "util/match/regex.h"

#include <algorithm>

namespace velmox {

namespace {

using Kind = PatternPart::Kind;

constexpr std::size_t kMostTexts = 8;
/// A count beyond this makes no text that is worth trying.
constexpr unsigned kMostRepeats = 300;

/// How often what may come any number of times does.
enum class Repeats
{
    Least,
    Once,
};

/// A character that a class takes; empty when none of those that are tried is one.
Str memberOf(const Str &charClass)
{
    static const Str kCandidates =
        "x0abcdefghijklmnopqrstuvwyz123456789_-. \\{}()$%+,;=@~!#&'^`[]/:*?\"<>|\t\r\n";
    try {
        const int at =
            Regex(charClass, false, 0)
                .findAt(kCandidates.data(), static_cast<unsigned>(kCandidates.size()), false, false);
        return at < 0 ? Str() : Str(1, kCandidates[static_cast<std::size_t>(at)]);
    } catch (const RegexException &) {
        return {};
    }
}

StrVector concatenated(const StrVector &fronts, const StrVector &backs)
{
    StrVector all;
    for (const Str &front : fronts) {
        for (const Str &back : backs) {
            if (all.size() < kMostTexts) {
                all.push_back(Str::concat(front, back));
            }
        }
    }
    return all;
}

StrVector textsOf(const PatternPart &part, Repeats repeats);

/// The texts of one turn of a part.
StrVector onceTexts(const PatternPart &part, Repeats repeats)
{
    StrVector texts;
    switch (part.kind) {
    case Kind::Text:
        return {part.text};
    case Kind::Any:
        return {"x"};
    case Kind::Assertion:
        return {""};
    case Kind::Class:
        if (Str member = memberOf(part.text); !member.empty()) {
            texts.push_back(std::move(member));
        }
        return texts;
    case Kind::Sequence:
        texts = {""};
        for (const PatternPart &child : part.parts) {
            texts = concatenated(texts, textsOf(child, repeats));
        }
        return texts;
    case Kind::Choice:
        for (const PatternPart &child : part.parts) {
            const StrVector more = textsOf(child, repeats);
            texts.insert(texts.end(), more.begin(), more.end());
        }
        texts.resize(std::min(texts.size(), kMostTexts));
        return texts;
    }
    return texts;
}

StrVector textsOf(const PatternPart &part, Repeats repeats)
{
    const unsigned wanted = repeats == Repeats::Least ? part.least : std::max(part.least, 1U);
    const unsigned count = std::min(wanted, part.most);
    if (count > kMostRepeats) {
        return {};
    }
    StrVector texts(1);
    if (count > 0) {
        texts = onceTexts(part, repeats);
    }
    for (Str &text : texts) {
        const Str one = text;
        for (unsigned more = 1; more < count; ++more) {
            text += one;
        }
    }
    return texts;
}

/// All texts that a part can match, when these are few; else none.
StrVector exactTexts(const PatternPart &part)
{
    StrVector texts;
    switch (part.kind) {
    case Kind::Text:
        texts = {part.text};
        break;
    case Kind::Assertion:
        return {""};
    case Kind::Any:
    case Kind::Class:
        return {};
    case Kind::Sequence:
        texts = {""};
        for (const PatternPart &child : part.parts) {
            texts = concatenated(texts, exactTexts(child));
        }
        break;
    case Kind::Choice:
        for (const PatternPart &child : part.parts) {
            const StrVector more = exactTexts(child);
            if (more.empty()) {
                return {};
            }
            texts.insert(texts.end(), more.begin(), more.end());
        }
        break;
    }
    if (part.most > 1 || texts.size() >= kMostTexts) {
        return {};
    }
    if (part.least == 0 && !texts.empty()) {
        texts.push_back("");
    }
    return texts;
}

bool repeatsBelow(const PatternPart &part)
{
    return std::ranges::any_of(part.parts, [](const PatternPart &child) {
        return anyPart(child, [](const PatternPart &at) { return at.isRepeated(); });
    });
}

bool isNest(const PatternPart &part)
{
    return part.isRepeated() && repeatsBelow(part);
}

/// Where a nest of repeats stands: what comes before it, and what it can be made to repeat.
struct Nest
{
    Str before;
    StrVector turns;
};

void addTurns(const PatternPart &part, StrVector &turns)
{
    for (const Str &text : onceTexts(part, Repeats::Once)) {
        if (!text.empty() && std::ranges::find(turns, text) == turns.end()) {
            turns.push_back(text);
        }
    }
    for (const PatternPart &child : part.parts) {
        addTurns(child, turns);
    }
}

void gatherNests(const PatternPart &part, const Str &before, std::vector<Nest> &nests)
{
    if (isNest(part)) {
        Nest nest{before, {}};
        addTurns(part, nest.turns);
        nests.push_back(std::move(nest));
        return;
    }
    Str front = before;
    for (const PatternPart &child : part.parts) {
        gatherNests(child, front, nests);
        const StrVector texts = part.kind == Kind::Sequence ? textsOf(child, Repeats::Least) : StrVector();
        front += texts.empty() ? Str() : texts.front();
    }
}

} // namespace

StrVector sampleTexts(const PatternPart &whole)
{
    StrVector texts = textsOf(whole, Repeats::Least);
    for (const Str &text : textsOf(whole, Repeats::Once)) {
        if (std::ranges::find(texts, text) == texts.end()) {
            texts.push_back(text);
        }
    }
    return texts;
}

StrVector beginnings(const PatternPart &whole)
{
    if (StrVector exact = exactTexts(whole); !exact.empty()) {
        return exact;
    }
    StrVector begun;
    if (whole.least == 0 || whole.kind == Kind::Any || whole.kind == Kind::Class) {
        return {""};
    }
    if (whole.kind == Kind::Choice) {
        for (const PatternPart &child : whole.parts) {
            const StrVector more = beginnings(child);
            begun.insert(begun.end(), more.begin(), more.end());
        }
        return begun;
    }
    begun = {whole.text};
    for (const PatternPart &child : whole.parts) {
        const StrVector exact = exactTexts(child);
        begun = concatenated(begun, exact.empty() ? beginnings(child) : exact);
        if (exact.empty()) {
            break;
        }
    }
    return begun;
}

bool hasNestedRepeats(const PatternPart &whole)
{
    return anyPart(whole, isNest);
}

StrVector worstTexts(const PatternPart &whole, std::size_t length)
{
    std::vector<Nest> nests;
    gatherNests(whole, {}, nests);
    StrVector texts;
    for (const Nest &nest : nests) {
        for (const Str &turn : nest.turns) {
            for (const char *end : {"!", "\\", "x", "\n"}) {
                Str text = nest.before;
                while (text.size() + 1 < length) {
                    text += turn;
                }
                text.resize(length - 1);
                texts.push_back(text << end);
            }
        }
    }
    return texts;
}

} // namespace velmox
