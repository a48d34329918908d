#include "pipeline/input/explain/registry_paths.h"

#include "pipeline/input/registry/reg_key.h"
#include "pipeline/input/registry/registry_roots.h"
#include "util/text/str_segment.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr std::string_view kKernelRoot = "\\REGISTRY\\";
// What the address bar of an editor and the shell's provider put in front.
constexpr std::string_view kDecorations[] = {"Computer\\", "Registry::"};

bool equalsCaseless(std::string_view a, std::string_view b)
{
    return Str::compareCaseless(a.data(), a.size(), b.data(), b.size()) == 0;
}

bool startsCaseless(std::string_view text, std::string_view prefix)
{
    return equalsCaseless(text.substr(0, prefix.size()), prefix);
}

Str shortNameOf(std::string_view root)
{
    for (const RegistryRoot &known : kRegistryRoots) {
        const Str shortName = Str::fromUtf16(known.shortName);
        if (equalsCaseless(root, shortName.view()) ||
            equalsCaseless(root, Str::fromUtf16(known.longName).view())) {
            return shortName;
        }
    }
    return equalsCaseless(root, "HKCR") || equalsCaseless(root, "HKEY_CLASSES_ROOT") ? Str("HKCR") : Str();
}

[[noreturn]] void refuse(const char *fault, const Str &text)
{
    throw ExplainException(Str::fromFormat("%s: \"%s\"", fault, text.c_str()));
}

[[noreturn]] void refuseDoubled(const Str &text)
{
    refuse("A path takes one backslash where a pattern takes two", text);
}

constexpr char kReported[] = "as the kernel reports it";

/// HKCR is not in the table of roots: the kernel has no such key, and Windows makes it of two (Microsoft,
/// "HKEY_CLASSES_ROOT Key").
HKEY handleOf(const Str &root)
{
    for (const RegistryRoot &known : kRegistryRoots) {
        if (Str::fromUtf16(known.shortName) == root) {
            return reinterpret_cast<HKEY>(known.key());
        }
    }
    return HKEY_CLASSES_ROOT;
}

/// What the kernel calls the key that is opened by this path, with links followed. Empty if there is no such
/// key, or it cannot be looked at.
Str nameOfKey(HKEY root, const Str &path)
{
    RegistryKeyHandle key;
    WideStr name;
    const NtQueryObject query = findNtQueryObject();
    if (query == nullptr ||
        openKey(root, asWide(WideStr::fromUtf8(path)), KEY_QUERY_VALUE, key) != ERROR_SUCCESS ||
        !queryName(query, key.get(), name)) {
        return {};
    }
    return Str::fromUtf16(name);
}

/// What the table of roots says of a short name; empty if it says nothing.
Str nativeRoot(const Str &root, const HiveNames &hiveNames)
{
    const auto found = hiveNames.hiveKeyMap().find(WideStr::fromUtf8(root));
    if (found == hiveNames.hiveKeyMap().end()) {
        return {};
    }
    Str native = Str::fromUtf16(found->second.regexPath);
    native.replaceAll("\\\\", "\\");
    return native;
}

Str joinedPath(const Str &root, std::string_view rest)
{
    Str path = root;
    if (!rest.empty()) {
        path << '\\' << rest;
    }
    return path;
}

/// Number of the hardware profile in use, as Windows notes it; 1 when the system does not say.
unsigned currentHardwareProfile()
{
    RegistryKeyHandle key;
    DWORD number = 1;
    DWORD size = sizeof number;
    const LSTATUS opened =
        openKey(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\IDConfigDB", KEY_QUERY_VALUE, key);
    if (opened != ERROR_SUCCESS ||
        RegQueryValueExW(key.get(), L"CurrentConfig", nullptr, nullptr, reinterpret_cast<BYTE *>(&number),
                         &size) != ERROR_SUCCESS) {
        return 1;
    }
    return static_cast<unsigned>(number);
}

/// Puts a name in the place of the last one of `link`, where a path lies there.
void follow(Str &path, std::string_view link, const Str &target)
{
    const std::string_view text = path.view();
    if (text.size() < link.size() || (text.size() > link.size() && text[link.size()] != '\\') ||
        Str::compareCaseless(text.data(), link.size(), link.data(), link.size()) != 0) {
        return;
    }
    const std::size_t last = link.rfind('\\') + 1;
    path.replace(last, link.size() - last, target.view());
}

/// Puts the targets of the links that each Windows has in their places. Where they are links indeed, the
/// kernel has followed them already, and nothing is left to replace; Wine has keys there.
Str withLinksFollowed(Str path)
{
    follow(path, "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current",
           Str::fromFormat("%04u", currentHardwareProfile()));
    follow(path, "\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet",
           Str::fromFormat("ControlSet%03u", HiveNames::systemControlSet()));
    return path;
}

constexpr char kSeparator[] = "\\\\";
// What stands behind the key's pattern: either the path goes on behind a separator, or it ends here. The
// monitor's filter would be served by `(\\(?s:.*))?` as well. But with this one a separator stands in front
// of the first special character, so that a baseline takes the whole key for the literal beginning and starts
// at it. And it also holds where the pattern is searched for, as for the name of an event: keys whose names
// only begin alike are not found.
constexpr char kSelfAndBelow[] = "\\\\?(?s:(?<=\\\\).*|(?!.))";

// In parentheses, so that the text is not taken for a stanza that names the current control set. That name is
// among the alternatives for the case that another stanza does so, and all see it.
constexpr char kAnyControlSet[] = "(CurrentControlSet|ControlSet[0-9]{3})";
constexpr char kAnyProfile[] = "(Current|[0-9]{4})";
constexpr char kWow64[] = "WOW6432Node";
constexpr char kPerhapsWow64[] = "(WOW6432Node\\\\)?";
constexpr char kPlainClasses[] = "Classes";
constexpr char kTwinClasses[] = "(Classes\\\\WOW6432Node|WOW6432Node\\\\Classes)";
constexpr char kAnyClasses[] = "(Classes|Classes\\\\WOW6432Node|WOW6432Node\\\\Classes)";
constexpr char kUserClasses[] = "_Classes";

bool isName(const StrVector &names, std::size_t at, const char *name)
{
    return at < names.size() && names[at].compareCaseless(name) == 0;
}

bool beginsWith(const StrVector &names, std::initializer_list<const char *> wanted)
{
    std::size_t at = 0;
    return std::ranges::all_of(wanted, [&](const char *name) { return isName(names, at++, name); });
}

/// Whether a root's name stands in front, be it of the name of a key.
bool startsAsRoot(std::string_view text)
{
    return std::ranges::any_of(kRegistryRoots, [&](const RegistryRoot &root) {
        return startsCaseless(text, Str::fromUtf16(root.shortName).view()) ||
               startsCaseless(text, Str::fromUtf16(root.longName).view());
    });
}

// A name as a pattern that matches it alone. Three kinds of characters are put into brackets, where they are
// no literal text that somebody might take for something else: control characters, a sign behind a blank,
// which looks like the beginning of a remark, and the first letter of a root's name, as the driver is asked
// for any root that a pattern names.
Str escaped(const Str &name)
{
    static constexpr CharSet kSpecial("\\^$.|?*+()[]{}");
    Str pattern;
    for (std::size_t at = 0; at < name.size(); ++at) {
        const char c = name[at];
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            pattern.appendFormat("[\\x%02x]", byte);
            continue;
        }
        if (((c == '#' || c == ';') && pattern.endsWith(" ")) || startsAsRoot(name.view().substr(at))) {
            pattern << '[' << c << ']';
            continue;
        }
        if (kSpecial.contains(c)) {
            pattern.push_back('\\');
        }
        pattern.push_back(c);
    }
    return pattern;
}

/// A path on the way to being a pattern. The registry's links are followed while it is names, as the kernel
/// reports what lies behind them; then some names become expressions.
class Builder
{
public:
    Builder(const WrittenPath &path, const Str &userKey)
        : root_(path.isKernels() ? Str("\\\\REGISTRY") : path.root)
    {
        StrSegment(path.isKernels() ? path.rest.substr(kKernelRoot.size()) : path.rest)
            .splitInto(names_, "\\");
        followLinks(userKey);
        std::ranges::transform(names_, std::back_inserter(patterns_), escaped);
    }

    void coverControlSets();
    /// With `both` the path and what 32-bit programs get for it, else the one that is written.
    void coverWow64(bool both, StrVector &notes);
    Str text() const;

private:
    void followLinks(const Str &userKey);
    void uniteClasses(bool both);
    bool isOfUserClasses() const;

    Str root_;
    StrVector names_;
    // As many as names.
    StrVector patterns_;
};

void Builder::followLinks(const Str &userKey)
{
    if (root_ == "HKCC") {
        root_ = "HKLM";
        names_.insert(names_.begin(), {"SYSTEM", "CurrentControlSet", "Hardware Profiles", "Current"});
    }
    if (root_ == "HKCU" && beginsWith(names_, {"Software", "Classes"})) {
        if (userKey.empty()) {
            throw ExplainException("The system does not say which user HKCU is");
        }
        root_ = "HKU";
        names_.insert(names_.begin(), userKey);
    }
    if (root_ == "HKU" && isName(names_, 1, "Software") && isName(names_, 2, "Classes")) {
        // The key at `Software\Classes` of a user is a link to one beside the user's own.
        names_[0] << kUserClasses;
        names_.erase(names_.begin() + 1, names_.begin() + 3);
    }
}

void Builder::coverControlSets()
{
    if (root_ != "HKLM" || !beginsWith(names_, {"SYSTEM", "CurrentControlSet"})) {
        return;
    }
    patterns_[1] = kAnyControlSet;
    if (isName(names_, 2, "Hardware Profiles") && isName(names_, 3, "Current")) {
        patterns_[3] = kAnyProfile;
    }
}

bool Builder::isOfUserClasses() const
{
    return root_ == "HKU" && !names_.empty() && names_[0].lowered().endsWith("_classes");
}

void Builder::coverWow64(bool both, StrVector &notes)
{
    const bool isOfSoftware = root_ == "HKLM" && isName(names_, 0, "SOFTWARE");
    const std::size_t behind = isName(names_, 1, kWow64) ? 2 : 1;
    if (isOfSoftware && isName(names_, behind, "Classes")) {
        uniteClasses(both);
    } else if (both && !isOfSoftware && !isOfUserClasses()) {
        notes.push_back(
            "The path has no twin for 32-bit programs: only HKLM\\SOFTWARE and the classes have.");
    } else if (both && names_.size() > behind) {
        patterns_.erase(patterns_.begin() + 1, patterns_.begin() + static_cast<std::ptrdiff_t>(behind));
        patterns_[1] = Str::concat(kPerhapsWow64, patterns_[1]);
    } else if (both) {
        notes.push_back("What 32-bit programs get for the path lies below it, or is it.");
    }
}

// `WOW6432Node\Classes` is a link to `Classes\WOW6432Node`; older systems have keys there. So the twin has
// two spellings, and whoever asks for one of them gets both.
void Builder::uniteClasses(bool both)
{
    const bool isTwin = isName(names_, 1, kWow64) || isName(names_, 2, kWow64);
    const std::ptrdiff_t end = isTwin ? 3 : 2;
    patterns_.erase(patterns_.begin() + 1, patterns_.begin() + end);
    patterns_.insert(patterns_.begin() + 1, both ? kAnyClasses : isTwin ? kTwinClasses : kPlainClasses);
}

// The monitor looks for `system\\currentcontrolset` anywhere in a pattern, in whatever case and whatever
// follows (HiveNames::detectCurrentControlSet). A name that only begins so, such as `CurrentControlSet2`,
// gets its first letter in brackets, which means the same and is not found by that.
Str Builder::text() const
{
    Str all = root_;
    for (const Str &pattern : patterns_) {
        all << kSeparator;
        if (all.lowered().endsWith("system\\\\") && pattern.lowered().startsWith("currentcontrolset")) {
            all << '[' << pattern[0] << ']' << pattern.substr(1);
        } else {
            all << pattern;
        }
    }
    return all << kSelfAndBelow;
}

} // namespace

WrittenPath readWrittenPath(const Str &text)
{
    std::string_view path = text.view();
    if (path.ends_with('\\')) {
        path.remove_suffix(1);
    }
    if (startsCaseless(path, kKernelRoot)) {
        return {{}, Str(path)};
    }
    for (const std::string_view decoration : kDecorations) {
        if (startsCaseless(path, decoration)) {
            path.remove_prefix(decoration.size());
        }
    }
    const std::size_t end = std::min(path.find('\\'), path.size());
    std::string_view root = path.substr(0, end);
    path.remove_prefix(end);
    // As PowerShell has it: `HKLM:\Software`.
    if (root.ends_with(':')) {
        root.remove_suffix(1);
    }
    const Str shortName = shortNameOf(root);
    if (shortName.empty()) {
        refuse("The path begins with none of HKLM, HKU, HKCU, HKCC, HKCR and \\REGISTRY", text);
    }
    if (path.starts_with("\\\\")) {
        refuseDoubled(text);
    }
    return {shortName, Str(path.substr(path.empty() ? 0 : 1))};
}

WrittenPath withShortRoot(const WrittenPath &path)
{
    for (const RegistryRoot &known : kRegistryRoots) {
        if (!path.isKernels() || known.nativePath == nullptr) {
            continue;
        }
        const Str native = Str::fromUtf16(known.nativePath);
        const std::string_view rest = path.rest.view();
        if (startsCaseless(rest, native.view()) &&
            (rest.size() == native.size() || rest[native.size()] == '\\')) {
            return {Str::fromUtf16(known.shortName),
                    Str(rest.substr(std::min(native.size() + 1, rest.size())))};
        }
    }
    return path;
}

KernelPath kernelPath(const WrittenPath &path, const HiveNames &hiveNames)
{
    if (path.isKernels()) {
        return {path.rest, "taken as the kernel's"};
    }
    const HKEY root = handleOf(path.root);
    const std::string_view rest = path.rest.view();
    // From the whole path upwards, a name less each time, until there is a key.
    for (std::size_t end = rest.size(); end != 0 && end != std::string_view::npos;
         end = rest.rfind('\\', end - 1)) {
        const Str name = nameOfKey(root, Str(rest.substr(0, end)));
        if (!name.empty()) {
            return {withLinksFollowed(joinedPath(name, rest.substr(std::min(end + 1, rest.size())))),
                    kReported};
        }
    }
    // Where nothing of it exists, a new key is made for the machine.
    if (path.root == "HKCR") {
        return {kernelPath({"HKLM", joinedPath("SOFTWARE\\Classes", rest)}, hiveNames).path,
                "as the kernel reports what is made there; each user has classes too"};
    }
    const Str native = nativeRoot(path.root, hiveNames);
    if (native.empty()) {
        throw ExplainException(
            Str::fromFormat("The system does not say what %s stands for", path.root.c_str()));
    }
    return {withLinksFollowed(joinedPath(native, rest)), kReported};
}

Str currentUserKey(const HiveNames &hiveNames)
{
    const Str native = nativeRoot("HKCU", hiveNames);
    const std::size_t last = native.view().rfind('\\');
    return last == std::string_view::npos ? Str() : native.substr(last + 1);
}

HivePattern hivePattern(const WrittenPath &path, bool wow64, const Str &userKey)
{
    const WrittenPath shortPath = withShortRoot(path);
    if (shortPath.root == "HKCR") {
        throw ExplainException(Str::fromFormat(
            "HKCR is two places, which take a stanza each: HKLM\\SOFTWARE\\Classes\\%s and, for each "
            "user, HKU\\<SID>_Classes\\%s",
            shortPath.rest.c_str(), shortPath.rest.c_str()));
    }
    if (path.rest.contains("\\\\") || path.rest.endsWith("\\")) {
        refuseDoubled(joinedPath(path.root, path.rest.view()));
    }
    HivePattern pattern;
    if (shortPath.isKernels()) {
        pattern.notes.push_back(
            "The driver reports nothing there, only what lies in \\REGISTRY\\MACHINE and \\REGISTRY\\USER.");
    }
    Builder builder(shortPath, userKey);
    builder.coverControlSets();
    builder.coverWow64(wow64, pattern.notes);
    pattern.hive = builder.text();
    if (pattern.hive.startsWith("HKCU")) {
        pattern.notes.push_back(
            "HKCU is the user that the monitor runs as; for a service that is the system.");
    }
    return pattern;
}

} // namespace velmox
