#include "pipeline/input/explain/hive_pattern.h"

#include "util/text/str_segment.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr char kSeparator[] = "\\\\";
// Either the path goes on behind a separator, or it ends here. Put like this a baseline still sees a literal
// name in front and begins at the key itself, and where the pattern is searched for, siblings are not found.
constexpr char kSelfAndBelow[] = "\\\\?(?s:(?<=\\\\).*|(?!.))";

// The alternatives keep the text clear of what is taken for a stanza on the current control set; that name is
// among them for the case that another stanza does name it.
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

// A control character stands in brackets, so that nobody takes the name for a literal one.
Str escaped(const Str &name)
{
    static constexpr CharSet kSpecial("\\^$.|?*+()[]{}");
    Str pattern;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            pattern.appendFormat("[\\x%02x]", byte);
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
    Builder(const WrittenPath &path, const Str &userKey) : root_(path.root)
    {
        if (path.isKernels()) {
            root_ = escaped(path.rest);
        } else {
            StrSegment(path.rest).splitInto(names_, "\\");
        }
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

// `WOW6432Node\Classes` is a link to `Classes\WOW6432Node`; older systems have keys there.
void Builder::uniteClasses(bool both)
{
    const bool isTwin = isName(names_, 1, kWow64) || isName(names_, 2, kWow64);
    const std::ptrdiff_t end = isTwin ? 3 : 2;
    patterns_.erase(patterns_.begin() + 1, patterns_.begin() + end);
    patterns_.insert(patterns_.begin() + 1, both ? kAnyClasses : isTwin ? kTwinClasses : kPlainClasses);
}

Str Builder::text() const
{
    Str all = root_;
    for (const Str &pattern : patterns_) {
        all << kSeparator << pattern;
    }
    return all << kSelfAndBelow;
}

} // namespace

HivePattern hivePattern(const WrittenPath &path, bool wow64, const Str &userKey)
{
    const WrittenPath shortPath = withShortRoot(path);
    if (shortPath.root == "HKCR") {
        throw ExplainException(Str::fromFormat(
            "HKCR is two places, which take a stanza each: HKLM\\SOFTWARE\\Classes\\%s and, for each "
            "user, HKU\\<SID>_Classes\\%s",
            shortPath.rest.c_str(), shortPath.rest.c_str()));
    }
    HivePattern pattern;
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
