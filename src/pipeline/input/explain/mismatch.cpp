#include "pipeline/input/explain/mismatch.h"

#include "util/match/required_literals.h"
#include "util/text/ascii.h"

#include <algorithm>
#include <functional>

namespace velmox {

namespace {

constexpr std::size_t kMostShown = 40;
constexpr CharSet kSyntax(".[](){}^$|*+?");
// Each of these can do away with the character in front of it.
constexpr CharSet kQuantifiers("*+?{");

bool isContinuation(char byte)
{
    return (byte & 0xC0) == 0x80;
}

unsigned characters(std::string_view text)
{
    return static_cast<unsigned>(std::ranges::count_if(text, std::not_fn(isContinuation)));
}

void dropCharacter(Str &text)
{
    std::size_t end = text.size();
    while (end > 0 && isContinuation(text[--end])) {
    }
    text.resize(end);
}

/// Behind the class that begins at `at`.
std::size_t endOfClass(std::string_view pattern, std::size_t at)
{
    ++at;
    at += pattern.substr(at).starts_with('^') ? 1 : 0;
    at += pattern.substr(at).starts_with(']') ? 1 : 0;
    while (at < pattern.size() && pattern[at] != ']') {
        at += pattern[at] == '\\' ? 2 : 1;
    }
    return at + 1;
}

bool hasTopLevelBar(std::string_view pattern)
{
    int depth = 0;
    for (std::size_t at = 0; at < pattern.size();) {
        const char c = pattern[at];
        if (c == '|' && depth == 0) {
            return true;
        }
        depth += c == '(' ? 1 : c == ')' ? -1 : 0;
        at = c == '[' ? endOfClass(pattern, at) : at + (c == '\\' ? 2 : 1);
    }
    return false;
}

/// The text that any match of the whole begins with.
Str literalBeginning(std::string_view pattern)
{
    Str literal;
    if (hasTopLevelBar(pattern)) {
        return literal;
    }
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        char c = pattern[at];
        if (kSyntax.contains(c)) {
            if (kQuantifiers.contains(c)) {
                dropCharacter(literal);
            }
            break;
        }
        if (c == '\\') {
            c = ++at < pattern.size() ? pattern[at] : 'a';
            if (isAsciiAlphanumeric(c)) {
                break;
            }
        }
        literal.push_back(c);
    }
    return literal;
}

Str shown(std::string_view text)
{
    std::size_t end = std::min(text.size(), kMostShown);
    while (end < text.size() && isContinuation(text[end])) {
        --end;
    }
    Str quoted = "\"";
    for (const char c : text.substr(0, end)) {
        // No line of the answer ends where a name does.
        quoted.push_back(c >= '\0' && c < ' ' ? '?' : c);
    }
    return quoted << (end < text.size() ? "...\"" : "\"");
}

/// Empty if the path has the literal text.
Str departure(std::string_view literal, std::string_view path)
{
    auto [in, on] = std::ranges::mismatch(literal, path);
    if (in == literal.end()) {
        return {};
    }
    auto at = static_cast<std::size_t>(in - literal.begin());
    while (at > 0 && (isContinuation(literal[at]) || (at < path.size() && isContinuation(path[at])))) {
        --at;
    }
    const unsigned place = characters(path.substr(0, at)) + 1;
    const std::size_t name = literal.substr(0, at).rfind('\\') + 1; // 0 without a backslash
    const Str wanted = shown(literal.substr(name));
    if (at == path.size()) {
        return Str::fromFormat("the path ends at character %u, where the pattern goes on with %s", place - 1,
                               shown(literal.substr(at)).c_str());
    }
    return Str::fromFormat("differs at character %u: the pattern has %s, the path %s", place, wanted.c_str(),
                           shown(path.substr(name)).c_str());
}

/// Empty if the text holds one of each set.
Str missingLiteral(const Regex &pattern, const Str &text)
{
    for (const LiteralSet &texts : requiredLiterals(pattern.pattern())) {
        if (std::ranges::none_of(texts, [&](const Str &one) { return text.contains(one.view()); })) {
            StrVector quoted;
            std::ranges::transform(texts, std::back_inserter(quoted),
                                   [](const Str &one) { return shown(one.view()); });
            return Str::concat(texts.size() > 1 ? "finds none of " : "does not find ", joined(quoted, ", "));
        }
    }
    return {};
}

} // namespace

Str whyNotAll(const Regex &pattern, const Str &path)
{
    Str why = departure(literalBeginning(pattern.pattern().view()).view(), path.view());
    if (why.empty()) {
        why = missingLiteral(pattern, path);
    }
    RegexMatch match;
    if (why.empty() && pattern.match(path, &match) && match.end() > match.start()) {
        why = Str::fromFormat("matches characters %u to %u and not the path as a whole, which has %u",
                              characters(path.view().substr(0, match.start())) + 1,
                              characters(path.view().substr(0, match.end())), characters(path.view()));
    }
    return why.empty() ? Str("the expression finds nothing") : why;
}

Str whyNotFound(const Regex &pattern, const Str &text)
{
    const Str missing = missingLiteral(pattern, text);
    return missing.empty() ? Str("the expression finds nothing") : missing;
}

} // namespace velmox
