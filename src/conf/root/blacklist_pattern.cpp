#include "conf/root/blacklist_pattern.h"

namespace velmox {

namespace {

struct Replacement
{
    std::string_view text;
    std::string_view expression;
};

constexpr Replacement kReplacements[] = {
    {"*", R"([^\\]*)"},
    {"...", ".*"},
    {".", R"(\.)"},
    {R"(\)", R"(\\)"},
};

/// Null when the text begins with nothing that is replaced.
const Replacement *replacementAt(std::string_view text)
{
    for (const Replacement &replacement : kReplacements) {
        if (text.starts_with(replacement.text)) {
            return &replacement;
        }
    }
    return nullptr;
}

} // namespace

Str blacklistPattern(const Str &wildcard)
{
    Str pattern;
    std::string_view rest = wildcard;
    while (!rest.empty()) {
        const Replacement *const replacement = replacementAt(rest);
        pattern += replacement == nullptr ? rest.substr(0, 1) : replacement->expression;
        rest.remove_prefix(replacement == nullptr ? 1 : replacement->text.size());
    }
    return pattern;
}

} // namespace velmox
