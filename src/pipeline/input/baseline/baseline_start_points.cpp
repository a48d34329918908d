#include "pipeline/input/baseline/baseline_start_points.h"

#include <algorithm>

namespace velmox {

namespace {

// Two backslashes, as a pattern spells one.
constexpr std::string_view kSeparator = "\\\\";

bool covers(const StartPath &front, const StartPath &path)
{
    return path.size() >= front.size() && std::equal(front.begin(), front.end(), path.begin());
}

} // namespace

StartPath literalComponents(const Str &pattern)
{
    StartPath components;
    std::size_t position = 0;
    for (;;) {
        const std::size_t separator = pattern.find(kSeparator, position);
        if (separator == Str::npos) {
            break;
        }
        // A pattern may begin with a separator, as "\\registry\\machine" does.
        if (separator != 0) {
            Str component = pattern.substr(position, separator - position);
            if (hasPatternCharacters(component)) {
                break;
            }
            components.push_back(std::move(component));
        }
        position = separator + kSeparator.size();
    }
    // Behind the last separator, or the whole of a pattern without one.
    const bool hasRest = components.empty() ? !pattern.empty() : position != 0;
    const Str rest = components.empty() ? pattern : pattern.substr(position);
    if (hasRest && !hasPatternCharacters(rest)) {
        components.push_back(rest);
    }
    return components;
}

std::vector<StartPath> withoutCovered(std::vector<StartPath> paths)
{
    // The shortest first: only a shorter path can cover another.
    std::stable_sort(paths.begin(), paths.end(),
                     [](const StartPath &a, const StartPath &b) { return a.size() < b.size(); });
    for (std::size_t front = 0; front < paths.size(); ++front) {
        for (std::size_t at = front + 1; at < paths.size(); ++at) {
            if (covers(paths[front], paths[at])) {
                // What moves up to this place is stepped over, see the header.
                paths.erase(paths.begin() + static_cast<std::ptrdiff_t>(at));
            }
        }
    }
    return paths;
}

ResolvedStart resolveRoot(const StartPath &path, const HiveNames &hiveNames)
{
    ResolvedStart start;
    for (const Str &component : path) {
        start.rest += "\\";
        start.rest += component;
        // Patterns are lower case by now, and the native names of roots upper case.
        start.rest = start.rest.uppered();
        const auto found =
            hiveNames.hiveKeyMap().find(WideStr::fromUtf8(Str::concat(start.root, start.rest)));
        // Goes on: a longer root may follow, as the current configuration's does below the machine's.
        if (found != hiveNames.hiveKeyMap().end()) {
            start.root += start.rest;
            start.hive = &found->second;
            start.rest.clear();
        }
    }
    return start;
}

} // namespace velmox
