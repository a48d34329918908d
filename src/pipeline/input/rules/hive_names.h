#pragma once

#include "util/text/str.h"
#include "util/text/wide_str.h"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace velmox {

/// What one name of a registry root stands for.
struct HiveKeyInfo
{
    /// Empty in the map; the baseline's working copy holds the root that it walks from.
    WideStr basePath;
    /// "HKCU", "HKLM", "HKU" or "HKCC".
    WideStr shortName;
    /// The native path with every backslash doubled, ready to stand in a regular expression.
    WideStr regexPath;
    /// The predefined root handle, sign-extended.
    std::uintptr_t rootKey = 0;
    /// The driver's mask bit for the hive.
    std::uint32_t hiveClass = 0;
};

/// The names of the registry roots in their three forms, native, short and long, and the one numbered control
/// set that patterns on the current control set stand for.
///
/// Filled during configuration, on the main thread, and only read afterwards.
class HiveNames
{
public:
    using Map = std::map<WideStr, HiveKeyInfo>;

    /// Fills the map, asking the system for the current user's native path. On failure the map stays empty:
    /// roots are then not translated, and paths print as the kernel gives them.
    void initHiveNameKeyMap();

    /// Fills the map for a current user of this native path.
    void fill(const WideStr &currentUserPath);

    /// Makes this control set the active one, whatever the system says.
    void setActiveControlSet(std::uint32_t number) { activeControlSet_ = number; }
    /// Number of the control set in use, 1 when the system does not say.
    static std::uint32_t systemControlSet();
    /// Notes the active control set if `hive`, a pattern as configured, names the current one. The first hit
    /// decides.
    void detectCurrentControlSet(const Str &hive);

    /// Replaces a root in the first component of a pattern by its `regexPath`.
    void translateHiveRoot(WideStr &hive) const;
    /// Replaces the longest native root that the path begins with by its short name. The comparison is of
    /// text: it knows no component boundary, and case counts.
    void shortenHiveRoot(Str &keyPath) const;

    const Map &hiveKeyMap() const { return hiveKeyMap_; }
    /// Lower case; empty unless a pattern named the current control set.
    const Str &currentControlSetPath() const { return currentControlSetPath_; }

private:
    struct ShortenedRoot
    {
        Str root;
        Str shortName;
    };

    Map hiveKeyMap_;
    // Of the map, the longest roots first.
    std::vector<ShortenedRoot> shortened_;
    std::optional<std::uint32_t> activeControlSet_;
    Str currentControlSetPath_;
};

/// Whether a hive pattern shows itself to be more than a plain path. The backslash does not show that, as a
/// path holds it doubled.
inline bool hasPatternCharacters(const Str &pattern)
{
    static constexpr CharSet kPatternCharacters("*.+?|(){}[]^$");
    return pattern.findFirst(kPatternCharacters, 0, true) != -1;
}

} // namespace velmox
