#include "pipeline/input/rules/hive_names.h"

#include "pipeline/input/driver/driver_protocol.h"
#include "pipeline/input/registry/registry_roots.h"

#include <algorithm>
#include <functional>

namespace velmox {

namespace {

WideStr withDoubledBackslashes(const WideStr &path)
{
    WideStr doubled;
    for (const char16_t unit : path) {
        doubled.append(unit == u'\\' ? 2 : 1, unit);
    }
    return doubled;
}

void insertRoot(HiveNames::Map &map, const RegistryRoot &root, const WideStr &nativePath)
{
    // By the native path, not by the name: what the driver knows is where a key lies.
    const bool isOfMachine = nativePath.startsWith(u"\\REGISTRY\\MACHINE");
    HiveKeyInfo info;
    info.shortName = root.shortName;
    info.regexPath = withDoubledBackslashes(nativePath);
    info.rootKey = root.key();
    info.hiveClass = isOfMachine ? kMachineHives : kUserHives;
    map.emplace(nativePath, info);
    map.emplace(root.shortName, info);
    map.emplace(root.longName, info);
}

} // namespace

void HiveNames::fill(const WideStr &currentUserPath)
{
    // An entry that is there already stays, so the user's own path comes before those that are the same for
    // all.
    for (const bool isUsers : {true, false}) {
        for (const RegistryRoot &root : kRegistryRoots) {
            if ((root.nativePath == nullptr) == isUsers) {
                insertRoot(hiveKeyMap_, root, isUsers ? currentUserPath : WideStr(root.nativePath));
            }
        }
    }
    shortened_.clear();
    for (const auto &[root, info] : hiveKeyMap_) {
        shortened_.push_back({Str::fromUtf16(root), Str::fromUtf16(info.shortName)});
    }
    // A user's root lies below that of all users, and the current configuration's below the machine's.
    std::ranges::stable_sort(shortened_, std::ranges::greater(),
                             [](const ShortenedRoot &entry) { return entry.root.size(); });
}

void HiveNames::detectCurrentControlSet(const Str &hive)
{
    // The text is that of a pattern, whose backslashes are doubled.
    if (!currentControlSetPath_.empty() || !hive.lowered().contains("system\\\\currentcontrolset")) {
        return;
    }
    const std::uint32_t active = activeControlSet_ ? *activeControlSet_ : systemControlSet();
    currentControlSetPath_ = "\\registry\\machine\\system\\";
    // Windows keeps two as a rule. A third, as failed starts can leave, is taken for the second.
    currentControlSetPath_ += active == 1 ? "controlset001" : "controlset002";
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
