#include "conf/root/path_pattern.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr std::string_view kAnyText = "*";

/// Both in lower case. Each `*` takes as little as lets the rest match: going back to the last one alone is
/// enough.
bool matchesFolded(std::string_view name, std::string_view pattern)
{
    std::size_t nameAt = 0;
    std::size_t patternAt = 0;
    std::size_t starAt = std::string_view::npos;
    std::size_t taken = 0;
    while (nameAt < name.size()) {
        if (patternAt < pattern.size() && pattern[patternAt] == '*') {
            starAt = patternAt++;
            taken = nameAt;
        } else if (patternAt < pattern.size() && pattern[patternAt] == name[nameAt]) {
            ++patternAt;
            ++nameAt;
        } else if (starAt != std::string_view::npos) {
            patternAt = starAt + 1;
            nameAt = ++taken;
        } else {
            return false;
        }
    }
    return pattern.substr(patternAt).find_first_not_of('*') == std::string_view::npos;
}

Str foldedName(const WideStr &name)
{
    return Str::fromUtf16(name).lowered();
}

} // namespace

bool matchesNamePattern(const WideStr &name, const WideStr &pattern)
{
    const Str text = foldedName(pattern);
    const bool isDots = name == u"." || name == u"..";
    return !(isDots && text.contains(kAnyText)) && matchesFolded(foldedName(name), text);
}

bool matchesPathPattern(const Pathname &path, const Pathname &pattern)
{
    std::vector<Pathname> names;
    std::vector<Pathname> patterns;
    path.split(names);
    pattern.split(patterns);
    return std::equal(names.begin(), names.end(), patterns.begin(), patterns.end(), matchesNamePattern);
}

} // namespace velmox
