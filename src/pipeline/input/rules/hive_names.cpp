#include "pipeline/input/rules/hive_names.h"

#include "pipeline/input/driver/driver_protocol.h"

#include <algorithm>
#include <functional>

namespace velmox {

namespace {

struct Root
{
    const char16_t *nativePath;
    const char16_t *shortName;
    const char16_t *longName;
    std::uint32_t handle;
    std::uint32_t hiveClass;
};

// The native path of the current user is not a constant.
constexpr Root kCurrentUser = {nullptr, u"HKCU", u"HKEY_CURRENT_USER", 0x80000001, kUserHives};
constexpr Root kFixedRoots[] = {
    {u"\\REGISTRY\\MACHINE", u"HKLM", u"HKEY_LOCAL_MACHINE", 0x80000002, kMachineHives},
    {u"\\REGISTRY\\USER", u"HKU", u"HKEY_USERS", 0x80000003, kUserHives},
    {u"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current", u"HKCC",
     u"HKEY_CURRENT_CONFIG", 0x80000005, kMachineHives},
};

WideStr withDoubledBackslashes(const WideStr &path)
{
    WideStr doubled;
    for (const char16_t unit : path) {
        doubled.append(unit == u'\\' ? 2 : 1, unit);
    }
    return doubled;
}

void insertRoot(HiveNames::Map &map, const Root &root, const WideStr &nativePath)
{
    HiveKeyInfo info;
    info.shortName = root.shortName;
    info.regexPath = withDoubledBackslashes(nativePath);
    info.rootKey =
        static_cast<std::uintptr_t>(static_cast<std::intptr_t>(static_cast<std::int32_t>(root.handle)));
    info.hiveClass = root.hiveClass;
    map.emplace(nativePath, info);
    map.emplace(root.shortName, info);
    map.emplace(root.longName, info);
}

} // namespace

void HiveNames::fill(const WideStr &currentUserPath)
{
    insertRoot(hiveKeyMap_, kCurrentUser, currentUserPath);
    for (const Root &root : kFixedRoots) {
        insertRoot(hiveKeyMap_, root, root.nativePath);
    }
    shortened_.clear();
    for (const auto &[root, info] : hiveKeyMap_) {
        shortened_.push_back({Str::fromUtf16(root), Str::fromUtf16(info.shortName)});
    }
    std::ranges::stable_sort(shortened_, std::ranges::greater(),
                             [](const ShortenedRoot &entry) { return entry.root.size(); });
}

void HiveNames::translateHiveRoot(WideStr &hive) const
{
    // A leading backslash ends no component.
    const std::size_t end = hive.find(u'\\', 1);
    const std::size_t length = end == WideStr::npos ? hive.size() : end;
    const auto root = hiveKeyMap_.find(hive.substr(0, length));
    if (root != hiveKeyMap_.end()) {
        hive.replace(0, length, root->second.regexPath);
    }
}

void HiveNames::shortenHiveRoot(Str &keyPath) const
{
    const auto root = std::ranges::find_if(
        shortened_, [&keyPath](const ShortenedRoot &entry) { return keyPath.startsWith(entry.root); });
    if (root != shortened_.end()) {
        keyPath.replace(0, root->root.size(), root->shortName);
    }
}

} // namespace velmox
