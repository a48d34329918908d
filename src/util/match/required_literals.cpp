#include "util/match/required_literals.h"

#include "util/text/ascii.h"
#include "util/text/code_point.h"

#include <algorithm>
#include <optional>

namespace velmox {

namespace {

// How many texts a set may come to when alternatives follow each other, and how long a text may become.
constexpr std::size_t kMostTexts = 16;
constexpr std::size_t kLongestText = 64;

constexpr CharSet kOneCharacterEscapes("dDwWsShHvVNaefnrt");
constexpr CharSet kAssertions("bBAzZG");
constexpr CharSet kDigits("0123456789");

/// What is known of a part of a pattern.
struct Part
{
    /// All texts that the part can match, when these are few; else empty. The empty text may be among them.
    LiteralSet exact;
    /// What any match of the part must hold, when its texts are not known one by one.
    std::vector<LiteralSet> required;

    bool isExact() const { return !exact.empty(); }
};

const Part kAnything = {};

/// Puts parts in a row. Texts that stand side by side grow together.
class Sequence
{
public:
    void add(const Part &part)
    {
        // Texts in a row are one longer text, which fewer subjects hold.
        if (part.isExact() && canAppend(part.exact)) {
            append(part.exact);
            return;
        }
        cut();
        if (part.isExact()) {
            current_ = part.exact;
        } else {
            whole_.required.insert(whole_.required.end(), part.required.begin(), part.required.end());
        }
        isExact_ = false;
    }

    /// What follows stands beside nothing known.
    void breakHere() { add(kAnything); }

    Part take()
    {
        if (isExact_) {
            return {std::move(current_), {}};
        }
        cut();
        return std::move(whole_);
    }

private:
    bool canAppend(const LiteralSet &texts) const
    {
        const auto longest = [](const LiteralSet &set) {
            return std::ranges::max_element(set, {}, &Str::size)->size();
        };
        return current_.size() * texts.size() <= kMostTexts &&
               longest(current_) + longest(texts) <= kLongestText;
    }

    void append(const LiteralSet &texts)
    {
        LiteralSet grown;
        for (const Str &before : current_) {
            for (const Str &text : texts) {
                grown.push_back(Str::concat(before, text));
            }
        }
        current_ = std::move(grown);
    }

    void cut()
    {
        // A set with the empty text asks for nothing.
        if (shortestOf(current_) > 0) {
            whole_.required.push_back(std::move(current_));
        }
        current_ = {""};
    }

    LiteralSet current_ = {""};
    bool isExact_ = true;
    Part whole_;
};

/// The better one of the sets to stand for one of several alternatives: its shortest text is the longer one.
const LiteralSet *bestOf(const std::vector<LiteralSet> &sets)
{
    const auto best = std::ranges::max_element(sets, {}, shortestOf);
    return best == sets.end() ? nullptr : &*best;
}

/// One of several parts, each of which the match may take.
Part eitherOf(std::vector<Part> parts)
{
    if (parts.size() == 1) {
        return std::move(parts.front());
    }
    Part either;
    LiteralSet texts;
    bool isExact = true;
    for (const Part &part : parts) {
        const LiteralSet *set = part.isExact() ? &part.exact : bestOf(part.required);
        // One alternative without a known text lets any subject through, and so the whole does.
        if (set == nullptr) {
            return kAnything;
        }
        isExact = isExact && part.isExact();
        texts.insert(texts.end(), set->begin(), set->end());
    }
    if (texts.size() > kMostTexts) {
        return kAnything;
    }
    if (isExact) {
        either.exact = std::move(texts);
    } else if (shortestOf(texts) > 0) {
        either.required.push_back(std::move(texts));
    }
    return either;
}

/// Reads a pattern as PCRE does, by recursive descent: alternatives of sequences of items, of which a group
/// holds alternatives again. Gives up, for the pattern as a whole, on what it does not know: groups that are
/// more than brackets, references, and escapes with arguments.
class Reader
{
public:
    explicit Reader(std::string_view pattern) : rest_(pattern) {}

    std::optional<Part> read()
    {
        Part part = alternatives();
        return isLost_ || !rest_.empty() ? std::nullopt : std::optional<Part>(std::move(part));
    }

private:
    Part alternatives()
    {
        // Deeper than any pattern that a person writes, and far from what the stack holds.
        constexpr unsigned kDeepest = 100;
        if (++depth_ > kDeepest) {
            isLost_ = true;
        }
        std::vector<Part> parts;
        do {
            parts.push_back(sequence());
        } while (!isLost_ && take('|'));
        --depth_;
        return eitherOf(std::move(parts));
    }

    Part sequence()
    {
        Sequence sequence;
        while (!isLost_ && !rest_.empty() && rest_.front() != '|' && rest_.front() != ')') {
            addItem(sequence);
        }
        return sequence.take();
    }

    void addItem(Sequence &sequence)
    {
        const Part item = readItem();
        const std::size_t least = leastRepeats();
        if (least == kOnce) {
            sequence.add(item);
            return;
        }
        // The item as often as it must come, then anything: it may come again.
        if (least > 0) {
            sequence.add(item);
        }
        sequence.breakHere();
    }

    Part readItem()
    {
        const char first = rest_.front();
        switch (first) {
        case '(':
            return group();
        case '[':
            skipClass();
            return kAnything;
        case '\\':
            return escape();
        case '.':
        case '^':
        case '$':
            rest_.remove_prefix(1);
            return kAnything;
        case '*':
        case '+':
        case '?':
            isLost_ = true; // nothing to repeat
            return kAnything;
        default:
            return character();
        }
    }

    Part character()
    {
        // All of its bytes, because a quantifier behind it is meant for the character.
        const std::size_t length = std::min<std::size_t>(
            rest_.size(), 1 + utf8ContinuationCount(static_cast<unsigned char>(rest_.front())));
        Part part{{Str(rest_.substr(0, length))}, {}};
        rest_.remove_prefix(length);
        return part;
    }

    Part group()
    {
        rest_.remove_prefix(1);
        if (rest_.starts_with("?:")) {
            rest_.remove_prefix(2);
        } else if (rest_.starts_with('?') || rest_.starts_with('*')) {
            isLost_ = true;
            return kAnything;
        }
        Part part = alternatives();
        isLost_ = isLost_ || !take(')');
        return part;
    }

    Part escape()
    {
        rest_.remove_prefix(1);
        if (rest_.empty()) {
            isLost_ = true;
            return kAnything;
        }
        const char letter = rest_.front();
        // A backslash in front of anything but a letter or a digit takes its meaning away.
        if (!isAsciiAlphanumeric(letter) && (letter & 0x80) == 0) {
            return character();
        }
        isLost_ = !kOneCharacterEscapes.contains(letter) && !kAssertions.contains(letter);
        rest_.remove_prefix(1);
        return kAnything;
    }

    void skipClass()
    {
        rest_.remove_prefix(1);
        take('^');
        // A bracket in front is a member.
        take(']');
        while (!rest_.empty() && rest_.front() != ']') {
            const char member = rest_.front();
            rest_.remove_prefix(1);
            if (member == '\\') {
                skipEscapedMember();
            } else if (member == '[' && !rest_.empty() && CharSet(":.=").contains(rest_.front())) {
                isLost_ = true; // a named class, perhaps
                return;
            }
        }
        isLost_ = isLost_ || !take(']');
    }

    void skipEscapedMember()
    {
        const bool isKnown = !rest_.empty() && (!isAsciiAlphanumeric(rest_.front()) ||
                                                kOneCharacterEscapes.contains(rest_.front()));
        isLost_ = isLost_ || !isKnown;
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
    }

    static constexpr std::size_t kOnce = static_cast<std::size_t>(-1);

    /// How often at least the item before must come, by the quantifiers that are taken off: 0 or 1, or
    /// `kOnce` without one. More than one, of which some only say how greedy the first is, come to the least
    /// of them.
    std::size_t leastRepeats()
    {
        std::size_t least = kOnce;
        std::size_t next = 0;
        while (takeQuantifier(next)) {
            least = std::min(least, next);
        }
        return least;
    }

    bool takeQuantifier(std::size_t &least)
    {
        if (take('*') || take('?')) {
            least = 0;
            return true;
        }
        least = 1;
        return take('+') || takeCounted(least);
    }

    /// `{2}`, `{2,}` or `{2,5}`; anything else in braces stands for itself.
    bool takeCounted(std::size_t &least)
    {
        std::string_view at = rest_;
        const auto takeDigits = [&at] {
            std::size_t count = 0;
            while (count < at.size() && kDigits.contains(at[count])) {
                ++count;
            }
            const std::string_view digits = at.substr(0, count);
            at.remove_prefix(count);
            return digits;
        };
        if (!at.starts_with('{')) {
            return false;
        }
        at.remove_prefix(1);
        const std::string_view minimum = takeDigits();
        if (minimum.empty()) {
            return false;
        }
        if (at.starts_with(',')) {
            at.remove_prefix(1);
            takeDigits();
        }
        if (!at.starts_with('}')) {
            return false;
        }
        rest_ = at.substr(1);
        // How often beyond once makes no difference here, and the number may be of any length.
        least = minimum.find_first_not_of('0') == minimum.npos ? 0 : 1;
        return true;
    }

    bool take(char byte)
    {
        if (!rest_.starts_with(byte)) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }

    std::string_view rest_;
    unsigned depth_ = 0;
    bool isLost_ = false;
};

} // namespace

std::size_t shortestOf(const LiteralSet &texts)
{
    return std::ranges::min_element(texts, {}, &Str::size)->size();
}

std::vector<LiteralSet> requiredLiterals(const Str &pattern)
{
    // What stands behind a NUL is no part of the pattern to PCRE.
    std::optional<Part> part = Reader(pattern.c_str()).read();
    if (!part) {
        return {};
    }
    if (part->isExact() && shortestOf(part->exact) > 0) {
        part->required.push_back(std::move(part->exact));
    }
    return std::move(part->required);
}

std::vector<std::string_view> alternativesOf(std::string_view pattern)
{
    std::vector<std::string_view> pieces;
    std::size_t from = 0;
    int depth = 0;
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        switch (pattern[at]) {
        case '\\':
            ++at;
            break;
        case '[': {
            // A bracket that closes a class does not stand first in it.
            const std::size_t first = at + (pattern.substr(at + 1).starts_with('^') ? 2 : 1);
            std::size_t end = first;
            while (end < pattern.size() && (pattern[end] != ']' || end == first)) {
                end += pattern[end] == '\\' ? 2 : 1;
            }
            at = end;
            break;
        }
        case '(':
        case ')':
            depth += pattern[at] == '(' ? 1 : -1;
            break;
        case '|':
            if (depth == 0) {
                pieces.push_back(pattern.substr(from, at - from));
                from = at + 1;
            }
            break;
        default:
            break;
        }
    }
    pieces.push_back(pattern.substr(from));
    return pieces;
}

} // namespace velmox
