#include "pipeline/input/check/pattern_syntax.h"

#include "util/match/regex.h"
#include "util/text/ascii.h"
#include "util/text/code_point.h"

#include <algorithm>
#include <pcre.h>

namespace velmox {

namespace {

using Kind = PatternPart::Kind;

// Escapes of a single letter, those that are a character or a set of them, and those that take none
// (pcrepattern, "Backslash"). The pattern is folded, so that there are no capitals.
constexpr CharSet kClassEscapes("dswhvnrtfae");
constexpr CharSet kAssertionEscapes("bz");
constexpr CharSet kHex("0123456789abcdef");
constexpr CharSet kDigits("0123456789");
constexpr CharSet kOptions("imsxuj-");

/// Groups within groups, each of which is a few calls on the stack; deeper than any pattern that a person
/// writes.
constexpr unsigned kDeepest = 100;

/// Reads a pattern by recursive descent: a choice of sequences of items, each with its quantifier. At the
/// first thing that it does not know it gives up on the whole pattern (`isLost_`): a check that says nothing
/// does less harm than one that is wrong.
class Parser
{
public:
    explicit Parser(std::string_view pattern) : rest_(pattern) {}

    std::optional<PatternPart> parse()
    {
        PatternPart whole = choice();
        return isLost_ || !rest_.empty() ? std::nullopt : std::optional(std::move(whole));
    }

private:
    PatternPart choice()
    {
        isLost_ = isLost_ || ++depth_ > kDeepest;
        // A setting within a group holds up to its end.
        const bool dotAll = dotAll_;
        PatternPart part{Kind::Choice};
        do {
            part.parts.push_back(sequence());
        } while (!isLost_ && take("|"));
        dotAll_ = dotAll;
        --depth_;
        return part.parts.size() > 1 ? part : std::move(part.parts.front());
    }

    PatternPart sequence()
    {
        PatternPart part{Kind::Sequence};
        while (!isLost_ && !rest_.empty() && rest_.front() != '|' && rest_.front() != ')') {
            PatternPart next = item();
            takeQuantifiers(next);
            part.parts.push_back(std::move(next));
        }
        return part;
    }

    PatternPart item()
    {
        switch (rest_.front()) {
        case '(':
            rest_.remove_prefix(1);
            return group();
        case '[':
            return charClass();
        case '\\':
            return escape();
        case '.':
            rest_.remove_prefix(1);
            return {Kind::Any, ".", dotAll_};
        case '^':
        case '$':
            return {Kind::Assertion, cut(1)};
        // A quantifier with nothing to repeat; PCRE refuses it, so that something before was misread.
        case '*':
        case '+':
        case '?':
            return lost();
        default:
            return {Kind::Text, cut(1 + utf8ContinuationCount(static_cast<unsigned char>(rest_.front())))};
        }
    }

    PatternPart group()
    {
        if (!rest_.starts_with('?')) {
            return rest_.starts_with('*') ? lost() : closed(choice());
        }
        // Before names, which begin with `?<` too.
        for (const char *look : {"?=", "?!", "?<=", "?<!"}) {
            if (take(look)) {
                closed(choice());
                return {Kind::Assertion, look};
            }
        }
        if (take("?#")) {
            cut(rest_.find(')'));
            return closed({Kind::Assertion});
        }
        if (take("?:") || take("?>") || take("?|")) {
            return closed(choice());
        }
        return take("?<") ? named('>') : take("?'") ? named('\'') : options();
    }

    PatternPart named(char end)
    {
        cut(rest_.find(end));
        cut(1);
        return closed(choice());
    }

    /// `(?s)` and `(?s:...)`. Of the settings that change what follows only `s` is known.
    PatternPart options()
    {
        take("?");
        const bool outer = dotAll_;
        bool isOn = true;
        while (!rest_.empty() && kOptions.contains(rest_.front())) {
            // What stands behind a minus sign is switched off. With `x` blanks and remarks would count for
            // nothing from here on.
            const char option = cut(1)[0];
            isLost_ = isLost_ || (option == 'x' && isOn);
            isOn = isOn && option != '-';
            dotAll_ = option == 's' ? isOn : dotAll_;
        }
        if (!take(":")) {
            return closed({Kind::Assertion});
        }
        PatternPart part = closed(choice());
        dotAll_ = outer;
        return part;
    }

    PatternPart closed(PatternPart part)
    {
        isLost_ = isLost_ || !take(")");
        return part;
    }

    PatternPart escape()
    {
        if (rest_.size() < 2) {
            return lost();
        }
        const char letter = rest_[1];
        if (!isAsciiAlphanumeric(letter)) {
            rest_.remove_prefix(1);
            return {Kind::Text, cut(1 + utf8ContinuationCount(static_cast<unsigned char>(letter)))};
        }
        if (kAssertionEscapes.contains(letter)) {
            return {Kind::Assertion, cut(2)};
        }
        if (kClassEscapes.contains(letter)) {
            return {Kind::Class, cut(2)};
        }
        const std::size_t length = longEscape(letter);
        if (length > 0) {
            return {Kind::Class, cut(length)};
        }
        // A letter without a meaning stands for itself. References need what a group matched, and are not
        // followed.
        if (kDigits.contains(letter) || letter == 'g' || letter == 'k') {
            return lost();
        }
        rest_.remove_prefix(1);
        return {Kind::Text, cut(1)};
    }

    /// The length of an escape with an argument; 0 for others.
    std::size_t longEscape(char letter) const
    {
        if (letter == 'c') {
            return 3;
        }
        if (letter != 'x' && letter != 'p' && letter != 'o' && letter != '0') {
            return 0;
        }
        if (rest_.substr(2).starts_with('{')) {
            return rest_.find('}') + 1;
        }
        std::size_t length = letter == 'p' ? 3 : 2;
        while (letter != 'p' && length < 4 && length < rest_.size() && kHex.contains(rest_[length])) {
            ++length;
        }
        return length;
    }

    PatternPart charClass()
    {
        std::size_t end = rest_.starts_with("[^") ? 2 : 1;
        // A bracket in front is a member.
        end += rest_.substr(end).starts_with(']') ? 1 : 0;
        while (end < rest_.size() && rest_[end] != ']') {
            // A class by name, such as `[:alpha:]`, whose bracket does not end the one around it.
            if (rest_.substr(end).starts_with("[:")) {
                const std::size_t named = rest_.find(":]", end);
                end = named == rest_.npos ? end : named + 1;
            }
            end += rest_[end] == '\\' ? 2 : 1;
        }
        return end < rest_.size() ? PatternPart{Kind::Class, cut(end + 1)} : lost();
    }

    void takeQuantifiers(PatternPart &part)
    {
        unsigned least = 1;
        unsigned most = 1;
        if (!takeQuantifier(least, most)) {
            return;
        }
        part.least = least;
        part.most = most;
        // Lazy or possessive.
        if (!take("?")) {
            take("+");
        }
        isLost_ = isLost_ || takeQuantifier(least, most);
    }

    bool takeQuantifier(unsigned &least, unsigned &most)
    {
        if (take("*") || take("+")) {
            least = lastTaken_ == '+' ? 1 : 0;
            most = PatternPart::kUnlimited;
            return true;
        }
        if (take("?")) {
            least = 0;
            return true;
        }
        return takeCounted(least, most);
    }

    /// `{2}`, `{2,}` or `{2,5}`; anything else in braces stands for itself.
    bool takeCounted(unsigned &least, unsigned &most)
    {
        const std::size_t end = rest_.find('}');
        if (!rest_.starts_with('{') || end == rest_.npos) {
            return false;
        }
        const Str inside(rest_.substr(1, end - 1));
        const std::size_t comma = inside.find(',');
        const Str first = inside.substr(0, comma);
        const Str second = comma == Str::npos ? first : inside.substr(comma + 1);
        const auto isNumber = [](const Str &text) {
            return std::ranges::all_of(text, [](char byte) { return kDigits.contains(byte); });
        };
        // `{,5}` is text for PCRE 8.
        if (first.empty() || !isNumber(first) || !isNumber(second)) {
            return false;
        }
        least = static_cast<unsigned>(first.toInt(0));
        most = second.empty() ? PatternPart::kUnlimited : static_cast<unsigned>(second.toInt(0));
        rest_.remove_prefix(end + 1);
        return true;
    }

    bool take(std::string_view text)
    {
        if (!rest_.starts_with(text)) {
            return false;
        }
        rest_.remove_prefix(text.size());
        lastTaken_ = text.back();
        return true;
    }

    Str cut(std::size_t length)
    {
        Str text(rest_.substr(0, length));
        rest_.remove_prefix(text.size());
        return text;
    }

    PatternPart lost()
    {
        isLost_ = true;
        return {};
    }

    std::string_view rest_;
    unsigned depth_ = 0;
    bool dotAll_ = false;
    bool isLost_ = false;
    char lastTaken_ = '\0';
};

/// The parts that every match goes through, without groups that hold for once.
void flatten(const PatternPart &part, std::vector<const PatternPart *> &out)
{
    if (part.kind == Kind::Sequence && part.least == 1 && part.most == 1) {
        for (const PatternPart &child : part.parts) {
            flatten(child, out);
        }
    } else if (part.kind != Kind::Assertion) {
        out.push_back(&part);
    }
}

const PatternPart *fromEnd(const PatternPart &whole, std::size_t place)
{
    std::vector<const PatternPart *> parts;
    flatten(whole, parts);
    return place < parts.size() ? parts[parts.size() - 1 - place] : nullptr;
}

} // namespace

Str shortened(const Str &value)
{
    constexpr std::size_t kLongest = 200;
    if (value.size() <= kLongest) {
        return value;
    }
    std::size_t end = kLongest;
    while ((value[end] & 0xC0) == 0x80) {
        --end;
    }
    return value.substr(0, end) << "...";
}

Str patternFault(const Str &pattern)
{
    try {
        Regex().compile(pattern, false, 0);
        return {};
    } catch (const RegexException &exception) {
        // The exception does not tell where, so that PCRE is asked again.
        const char *error = nullptr;
        int offset = 0;
        pcre_free(pcre_compile(pattern.c_str(), PCRE_UTF8, &error, &offset, nullptr));
        const auto isFirstByte = [](char byte) { return (byte & 0xC0) != 0x80; };
        const std::string_view before = pattern.view().substr(0, static_cast<std::size_t>(offset));
        const auto place = std::min(std::ranges::count_if(before, isFirstByte),
                                    std::ranges::count_if(pattern.view(), isFirstByte) - 1);
        return Str::fromFormat("%s at character %d of \"%s\"",
                               error != nullptr ? error : exception.message().c_str(),
                               static_cast<int>(place), shortened(pattern).c_str());
    }
}

std::optional<PatternPart> parsePattern(const Str &pattern)
{
    // Up to a NUL, as PCRE 8 takes its patterns.
    return Parser(pattern.c_str()).parse();
}

Str unitedAlternatives(const std::vector<std::string_view> &alternatives)
{
    constexpr std::string_view kRootEnd = "\\\\";
    const std::size_t rootEnd = alternatives.front().find(kRootEnd);
    if (rootEnd == std::string_view::npos) {
        return {};
    }
    const std::string_view root = alternatives.front().substr(0, rootEnd + kRootEnd.size());
    // The longer one first, as it ends in what looks like the shorter one.
    std::string_view tail;
    for (const std::string_view one : {"(\\\\.*)?", "\\\\.*"}) {
        const bool isOfAll =
            std::ranges::all_of(alternatives, [&](std::string_view a) { return a.ends_with(one); });
        tail = tail.empty() && isOfAll ? one : tail;
    }
    StrVector middles;
    for (const std::string_view one : alternatives) {
        if (!one.starts_with(root) || one.size() <= root.size() + tail.size()) {
            return {};
        }
        middles.emplace_back(one.substr(root.size(), one.size() - root.size() - tail.size()));
    }
    return Str() << root << '(' << joined(middles, "|") << ')' << tail;
}

const PatternPart *lastPart(const PatternPart &whole)
{
    return fromEnd(whole, 0);
}

const PatternPart *secondLastPart(const PatternPart &whole)
{
    return fromEnd(whole, 1);
}

} // namespace velmox
