#include "conf/root/path_forms.h"

#include <algorithm>
#include <iterator>

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

constexpr const char *kDevices[] = {"con", "prn", "aux", "nul", "conin$", "conout$"};
/// Those that a port's number follows.
constexpr const char *kPorts[] = {"com", "lpt"};
/// The digits of ports; the system counts the superscript ones of Latin-1 as digits too.
constexpr const char *kPortNumbers[] = {"1", "2", "3", "4", "5", "6", "7", "8", "9", "¹", "²", "³"};

bool isPort(std::string_view name)
{
    constexpr std::size_t kLength = 3;
    const auto startsName = [name](const char *port) { return name.starts_with(port); };
    const auto endsName = [name](const char *number) { return name.substr(kLength) == number; };
    // What stands behind the third letter is looked at only when there are three.
    return std::any_of(std::begin(kPorts), std::end(kPorts), startsName) &&
           std::any_of(std::begin(kPortNumbers), std::end(kPortNumbers), endsName);
}

} // namespace

Pathname cleanedPath(const Pathname &path)
{
    Pathname result(path);
    std::replace(result.begin(), result.end(), u'/', Pathname::kSeparator);
    result.collapseSlashes();
    result.stripTrailingSlashes();
    return result;
}

Pathname foldedPath(const Pathname &path)
{
    return Pathname::fromUtf8(path.toStr().lowered());
}

bool isSamePath(const Pathname &a, const Pathname &b)
{
    return a.toStr().compareCaseless(b.toStr()) == 0;
}

bool levelsBelow(const Pathname &path, const Pathname &folder, std::vector<Pathname> &out)
{
    std::vector<Pathname> names;
    std::vector<Pathname> folders;
    path.split(names);
    folder.split(folders);
    // By levels: as texts, "C:\apps2" would lie below "C:\apps".
    if (names.size() < folders.size()) {
        return false;
    }
    const auto below = names.begin() + static_cast<std::ptrdiff_t>(folders.size());
    if (!std::equal(names.begin(), below, folders.begin(), isSamePath)) {
        return false;
    }
    out.assign(below, names.end());
    return true;
}

bool matchesNamePattern(const WideStr &name, const WideStr &pattern)
{
    const Str text = foldedName(pattern);
    // They match by their own text alone: a pattern that says "." means it.
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

bool isReservedName(std::string_view name)
{
    if (name.ends_with('.') || name.ends_with(' ')) {
        return true;
    }
    const Str base = Str(name.substr(0, name.find('.'))).trimmed(CharSet(" "), false, true).lowered();
    const auto isBase = [&base](const char *device) { return base == device; };
    return std::any_of(std::begin(kDevices), std::end(kDevices), isBase) || isPort(base);
}

} // namespace velmox
