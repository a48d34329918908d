#include "pipeline/input/check/pattern_samples.h"

#include "util/match/regex.h"
#include "util/match/regex_program.h"

#include <algorithm>
#include <chrono>

namespace velmox {

namespace {

using Kind = PatternPart::Kind;

/// Alternatives multiply; a few texts show what a pattern means.
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
    // Likely characters first, as they make texts that people recognise in a message.
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

/// All texts that a part can match, when these are few; else none. A list at its limit counts as none, since
/// it may have been cut.
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

/// Whether what one alternative begins with, another one can begin with too: each turn of a repeat around
/// them can then be tried in several ways.
bool hasLikeAlternatives(const PatternPart &part)
{
    if (part.kind != Kind::Choice) {
        return false;
    }
    StrVector seen;
    for (const PatternPart &child : part.parts) {
        const StrVector begun = beginnings(child);
        const bool isAlike = std::ranges::any_of(begun, [&](const Str &text) {
            return std::ranges::any_of(
                seen, [&](const Str &other) { return text.empty() || other.empty() || text[0] == other[0]; });
        });
        if (isAlike) {
            return true;
        }
        seen.insert(seen.end(), begun.begin(), begun.end());
    }
    return false;
}

bool repeatsBelow(const PatternPart &part)
{
    return std::ranges::any_of(part.parts, [](const PatternPart &child) {
        return anyPart(child,
                       [](const PatternPart &at) { return at.isRepeatedOften() || at.least != at.most; });
    });
}

/// The two forms of pattern in which the number of ways to match doubles with each character: `(a+)+` and
/// `(a|aa)+`. On a text that fails at its end all of them are tried.
bool isNest(const PatternPart &part)
{
    return part.isRepeatedOften() && (repeatsBelow(part) || anyPart(part, hasLikeAlternatives));
}

/// Where a nest of repeats stands: what comes before it and behind it, what it can be made to repeat, and how
/// often it has to be.
struct Nest
{
    Str before;
    Str behind;
    StrVector turns;
    unsigned least = 0;
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

Str shortestText(const PatternPart &part)
{
    const StrVector texts = textsOf(part, Repeats::Least);
    return texts.empty() ? Str() : texts.front();
}

/// Finds the nests, and for each the shortest text that leads to it and the shortest that follows. Nests
/// within a nest are part of it.
void gatherNests(const PatternPart &part, const Str &before, const Str &behind, std::vector<Nest> &nests)
{
    if (isNest(part)) {
        Nest nest{before, behind, {}, part.least};
        addTurns(part, nest.turns);
        nests.push_back(std::move(nest));
        return;
    }
    const bool isRow = part.kind == Kind::Sequence;
    Str front = before;
    for (std::size_t at = 0; at < part.parts.size(); ++at) {
        Str back;
        for (std::size_t next = at + 1; isRow && next < part.parts.size(); ++next) {
            back += shortestText(part.parts[next]);
        }
        gatherNests(part.parts[at], front, back += behind, nests);
        front += isRow ? shortestText(part.parts[at]) : Str();
    }
}

/// As many turns as there is room for, and one at least. Only whole turns: no character of UTF-8 is cut, and
/// PCRE is told that it need not look.
Str filledText(const Str &before, const Str &turn, const Str &end, std::size_t length)
{
    Str text = before;
    do {
        text += turn;
    } while (text.size() + turn.size() + end.size() <= length);
    return text += end;
}

Str withoutFirst(const Str &text)
{
    std::size_t end = std::min<std::size_t>(text.size(), 1);
    while (end < text.size() && (text[end] & 0xC0) == 0x80) {
        ++end;
    }
    return text.substr(end);
}

/// One turn less than there have to be, and then what else the turns hold: what is searched for is not found
/// however that is shared out among them.
Str textWithTooFewTurns(const Nest &nest, const Str &turn, std::size_t length)
{
    Str text = nest.before;
    for (unsigned turns = 1; turns < nest.least; ++turns) {
        text += turn;
    }
    const bool hasFront = turn.size() > 1 && static_cast<unsigned char>(turn[0]) < 0x80;
    const std::size_t used = text.size() + nest.behind.size();
    return text << Str(length - std::min(used, length), hasFront ? turn[0] : '!') << nest.behind;
}

/// Steps after which a trial ends. A text that is not worth a word takes far fewer than the first, one for
/// which the monitor's own limit matters more than the second: so nearly all texts cost little, and at most
/// one runs up to the monitor's limit.
constexpr unsigned kQuickLimit = 20'000;
constexpr unsigned kLongLimit = 150'000;
/// What takes longer need not be measured twice.
constexpr double kLongMilliseconds = 20;

constexpr int kOffsets = 30;
constexpr int kRuns = 3;

/// The pattern as the filter has it, with a limit of steps in front, which can only lower the one that the
/// caller sets (pcrepattern, "Setting match and recursion limits"). A limit of zero leaves the monitor's own.
std::unique_ptr<RegexProgram> limitedProgram(const Str &pattern, TrialMode mode, unsigned limit)
{
    Str text = limit == 0 ? Str() : Str::fromFormat("(*LIMIT_MATCH=%u)", limit);
    const bool isWhole = mode == TrialMode::Whole;
    text << (isWhole ? "(?:" : "") << pattern << (isWhole ? ")\\z" : "");
    const char *error = nullptr;
    return RegexProgram::compile(text, true, isWhole ? PCRE_ANCHORED : 0, error);
}

PatternTrial runOnce(const RegexProgram &program, const Str &text)
{
    int offsets[kOffsets];
    const auto start = std::chrono::steady_clock::now();
    const int result = program.exec(text.data(), text.size(), PCRE_NO_UTF8_CHECK, offsets, kOffsets);
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    return {time.count(), text.size(),
            result == PCRE_ERROR_MATCHLIMIT || result == PCRE_ERROR_RECURSIONLIMIT};
}

/// The best of some runs: others on the machine only ever add to the time.
PatternTrial run(const RegexProgram &program, const Str &text)
{
    PatternTrial best = runOnce(program, text);
    for (int more = 1; more < kRuns && !best.gaveUp && best.milliseconds < kLongMilliseconds; ++more) {
        best.milliseconds = std::min(best.milliseconds, runOnce(program, text).milliseconds);
    }
    return best;
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
    // A row of parts is followed up to the first whose texts are not all known.
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
    gatherNests(whole, {}, {}, nests);
    StrVector texts;
    for (const Nest &nest : nests) {
        // PCRE gives up at once on a text that lacks a character which every match must have. So the end of a
        // text, on which the match has to fail, is tried in several ways, also with what follows the nest in
        // it.
        const Str other = "!";
        const Str behindFirst = withoutFirst(nest.behind);
        for (const Str &end :
             {other, Str("\\"), Str("\\\\"), Str("x"), Str("\n"), Str::concat(nest.behind, other),
              Str::concat(other, nest.behind), Str::concat(other, behindFirst)}) {
            for (const Str &turn : nest.turns) {
                texts.push_back(filledText(nest.before, turn, end, length));
            }
        }
        for (const Str &turn : nest.turns) {
            if (nest.least > 1 && nest.least * turn.size() < length) {
                texts.push_back(textWithTooFewTurns(nest, turn, length));
            }
        }
    }
    return texts;
}

PatternTrial worstTrial(const Str &pattern, TrialMode mode, const StrVector &texts)
{
    PatternTrial worst;
    const auto quick = limitedProgram(pattern, mode, kQuickLimit);
    const auto longer = limitedProgram(pattern, mode, kLongLimit);
    const auto real = limitedProgram(pattern, mode, 0);
    if (!quick || !longer || !real) {
        return worst;
    }
    const Str *slowest = nullptr;
    for (const Str &text : texts) {
        PatternTrial trial = run(*quick, text);
        if (trial.gaveUp) {
            trial = run(*longer, text);
            if (trial.gaveUp) {
                return run(*real, text);
            }
        }
        if (trial.milliseconds > worst.milliseconds) {
            worst = trial;
            slowest = &text;
        }
    }
    return slowest != nullptr ? run(*real, *slowest) : worst;
}

} // namespace velmox
