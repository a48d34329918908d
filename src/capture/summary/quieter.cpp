#include "capture/summary/quieter.h"

#include "util/match/required_literals.h"

#include <algorithm>
#include <string>
#include <vector>

namespace velmox {

namespace {

using Components = std::vector<std::string>;

/// Characters that mean something in a pattern, and those that repeat what stands before them (pcrepattern,
/// "Characters and metacharacters").
constexpr std::string_view kSpecial = "^$.|?*+()[]{}\\";
constexpr std::string_view kQuantifiers = "?*+{";
constexpr std::string_view kAnything = ".*";

bool isIn(char byte, std::string_view set)
{
    return set.find(byte) != std::string_view::npos;
}

/// A text as a pattern that matches it alone. Control characters become escapes, as a setting is one line.
Str escaped(std::string_view text)
{
    Str out;
    for (const char byte : text) {
        if (static_cast<unsigned char>(byte) < ' ') {
            out.appendFormat("\\x%02x", static_cast<unsigned>(byte));
            continue;
        }
        if (isIn(byte, kSpecial)) {
            out << '\\';
        }
        out << byte;
    }
    return out;
}

Components split(std::string_view path)
{
    Components components;
    for (std::size_t end = path.find('\\'); end != std::string_view::npos; end = path.find('\\')) {
        components.emplace_back(path.substr(0, end));
        path.remove_prefix(end + 1);
    }
    components.emplace_back(path);
    return components;
}

/// A place behind a separator, with the text that leads there all literal.
struct Cut
{
    std::size_t at;
    std::string literal;
};

/// The places behind the separators of the literal beginning of a pattern, the first being its very front.
/// The beginning ends at what is not literal: a class or reference (a backslash with a letter or digit), any
/// other special character, and a character that what follows it may repeat or leave out.
std::vector<Cut> cutsOf(std::string_view pattern)
{
    std::vector<Cut> cuts{{0, {}}};
    std::string literal;
    for (std::size_t at = 0; at < pattern.size();) {
        const bool isEscape = pattern[at] == '\\' && at + 1 < pattern.size();
        const char byte = isEscape ? pattern[at + 1] : pattern[at];
        const bool isClass = isEscape && std::isalnum(static_cast<unsigned char>(byte)) != 0;
        const std::size_t next = at + (isEscape ? 2 : 1);
        const bool isRepeated = next < pattern.size() && isIn(pattern[next], kQuantifiers);
        if (isClass || isRepeated || (!isEscape && isIn(byte, kSpecial))) {
            break;
        }
        literal += byte;
        at = next;
        if (isEscape && byte == '\\') {
            cuts.push_back({at, literal});
        }
    }
    return cuts;
}

/// The components that a cut leads through, as the filters see them. A root at the front of the whole pattern
/// stands for the kernel's.
Components componentsOf(const Cut &cut, bool isAtFront, const HiveNames &hiveNames)
{
    Str text = Str(cut.literal);
    if (isAtFront) {
        // The translation is one of patterns, in which a backslash is doubled.
        text.replaceAll("\\", "\\\\");
        WideStr wide = WideStr::fromUtf8(text);
        hiveNames.translateHiveRoot(wide);
        text = Str::fromUtf16(wide);
        text.replaceAll("\\\\", "\\");
    }
    Components components = split(text.lowered().view());
    components.pop_back();
    return components;
}

/// The components of a path of the filters, each as events spell it where they have it too.
Components spelt(std::string_view filterPath, std::string_view path)
{
    Components components = split(filterPath);
    const Components names = split(path);
    for (std::size_t fromEnd = 1; fromEnd <= std::min(components.size(), names.size()); ++fromEnd) {
        std::string &component = components[components.size() - fromEnd];
        const std::string &name = names[names.size() - fromEnd];
        if (Str(name).lowered().view() == component) {
            component = name;
        }
    }
    return components;
}

/// Whether the pattern begins with a root that the monitor knows at the very front alone.
bool beginsWithRoot(std::string_view pattern, const HiveNames &hiveNames)
{
    const WideStr wide = WideStr::fromUtf8(Str(pattern));
    WideStr translated = wide;
    hiveNames.translateHiveRoot(translated);
    return translated != wide;
}

/// A pattern for components from `first` on. The kernel's root is spelt so that it is none to the monitor,
/// which asks the driver for the hives whose roots stand in a pattern, wherever.
Str patternOf(const Components &names, std::size_t first)
{
    constexpr std::size_t kRoot = 2;
    Str out;
    for (std::size_t at = first; at < names.size(); ++at) {
        const std::string &name = names[at];
        out << (at == first ? "" : "\\\\");
        if (first == 0 && at == kRoot && !name.empty()) {
            out << '[' << name.front() << ']' << escaped(std::string_view(name).substr(1));
        } else {
            out << escaped(name);
        }
    }
    return out;
}

/// One alternative, with an assertion in it that no match goes on with the path from there.
///
/// The assertion stands as far behind as it can, at the last separator of the literal beginning that lies
/// above the path: what is literal in front is what the driver's filter block and baselines go by. The cuts
/// are tried from the last one to the front. One that leads elsewhere shows that the alternative matches
/// nothing of the path; one that leads into what is below the path stands too far behind.
///
/// `path` is for the filters, `names` has its components as they are spelt. Nothing where only the place in
/// front of a root is left to cut at.
std::optional<Str> alternativeWithout(std::string_view pattern, bool isAtFront, const Components &path,
                                      const Components &names, const HiveNames &hiveNames)
{
    std::vector<Cut> cuts = cutsOf(pattern);
    for (; !cuts.empty(); cuts.pop_back()) {
        const Components before = componentsOf(cuts.back(), isAtFront, hiveNames);
        const std::size_t shared = std::min(before.size(), path.size());
        if (!std::equal(before.begin(), before.begin() + static_cast<std::ptrdiff_t>(shared), path.begin())) {
            return Str(pattern);
        }
        if (before.size() < path.size()) {
            if (cuts.back().at == 0 && isAtFront && beginsWithRoot(pattern, hiveNames)) {
                return std::nullopt;
            }
            Str out(pattern.substr(0, cuts.back().at));
            // Up to the end of a component: a key beside it whose name goes on is another one.
            out << "(?!" << patternOf(names, before.size()) << "(\\\\|\\z))"
                << pattern.substr(cuts.back().at);
            return out;
        }
    }
    return Str(pattern);
}

/// The path behind the drive, if for the filters it is the same behind a device `\device\NAME`; else empty.
std::string_view pathOnVolume(const QuietProcess &process)
{
    constexpr std::string_view kDevices = "\\device\\";
    constexpr std::size_t kDrive = 2;
    if (process.displayed.size() <= kDrive || process.displayed[1] != ':' ||
        !process.folded.starts_with(kDevices)) {
        return {};
    }
    const std::string_view path = process.displayed.substr(kDrive);
    const std::size_t end = process.folded.find('\\', kDevices.size());
    const bool isSame =
        end != std::string_view::npos && Str(path).lowered().view() == process.folded.substr(end);
    return isSame ? path : std::string_view();
}

} // namespace

Str procWithout(const Str &proc, const QuietProcess &process, DriveMap &drives)
{
    Str out("^(?!");
    const std::string_view onVolume = pathOnVolume(process);
    // The image of a drive lies on a device, whose number may be another one after the next start: any device
    // will do.
    if (onVolume.empty()) {
        out << escaped(process.folded);
    } else {
        out << R"(\\device\\[^\\]*)" << escaped(onVolume);
    }
    out << "\\z)";
    if (!proc.empty() && proc.view() != kAnything) {
        // `proc` is searched for, so what it matches may stand anywhere behind the front.
        out << ".*(?:" << drives.translateProcessDrive(proc) << ')';
    }
    return out;
}

std::optional<Str> hiveWithout(const Str &hive, std::string_view filterPath, std::string_view path,
                               const HiveNames &hiveNames)
{
    const std::string_view pattern = hive.empty() ? kAnything : hive.view();
    const Components components = split(filterPath);
    const Components names = spelt(filterPath, path);
    Str out;
    bool isFirst = true;
    for (const std::string_view alternative : alternativesOf(pattern)) {
        const auto without = alternativeWithout(alternative, isFirst, components, names, hiveNames);
        if (!without) {
            return std::nullopt;
        }
        out << (isFirst ? "" : "|") << *without;
        isFirst = false;
    }
    if (!hasPatternCharacters(Str(pattern)) && out.view() != pattern) {
        // What the monitor puts behind a path without special characters, here as it can stand in one line.
        // With the assertion in it the monitor takes this for a plain path no longer.
        out << R"(\\?([^\\\r\n]+)?)";
    }
    return out;
}

} // namespace velmox
