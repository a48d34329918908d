#include "pipeline/input/registry/win_registry.h"

#include "pipeline/input/registry/registry_key_handle.h"
#include "pipeline/input/registry/registry_walk.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

constexpr DWORD kNameUnits = 255;

Logger registryLog("WinRegistryApi");

struct RootNames
{
    const char *longName;
    const char *shortName;
    HKEY key;
};

const RootNames kRoots[] = {
    {"HKEY_LOCAL_MACHINE", "HKLM", HKEY_LOCAL_MACHINE},
    {"HKEY_USERS", "HKU", HKEY_USERS},
    {"HKEY_CURRENT_USER", "HKCU", HKEY_CURRENT_USER},
    {"HKEY_CURRENT_CONFIG", "HKCC", HKEY_CURRENT_CONFIG},
};

} // namespace

WinRegistry::WinRegistry()
{
    for (const RootNames &root : kRoots) {
        roots_[root.longName] = root.key;
        roots_[root.shortName] = root.key;
    }
}

std::uint32_t WinRegistry::walk(HKEY rootKey, const char16_t *subKeyPath, KeyCallback keyCallback,
                                ValueCallback valueCallback, void *context, const volatile LONG *stop) const
{
    if (subKeyPath == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    while (*subKeyPath == u'\\') {
        ++subKeyPath;
    }
    RegistryKeyHandle key;
    const LSTATUS result = openForReading(rootKey, asWide(subKeyPath), key);
    if (result != ERROR_SUCCESS) {
        return static_cast<std::uint32_t>(result);
    }
    const RegistryWalk walk = {keyCallback, valueCallback, context, stop};
    return walk.visit(key.get(), subKeyPath);
}

bool WinRegistry::getSubKeys(HKEY key, WideStrVector &out) const
{
    for (DWORD index = 0;; ++index) {
        wchar_t name[kNameUnits];
        DWORD length = kNameUnits;
        const LSTATUS result = RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (result == ERROR_NO_MORE_ITEMS) {
            return true;
        }
        if (result == ERROR_SUCCESS) {
            out.emplace_back(asUtf16(name), length);
            continue;
        }
        // The registry's calls return their code; the message takes its text from the last error.
        SetLastError(static_cast<DWORD>(result));
        const bool isTooLong = result == ERROR_MORE_DATA;
        registryLog.log(isTooLong ? LogLevel::Debug : LogLevel::Error,
                        "%s: Enumerating registry key failed at key '%d': '%m'", "WinRegistry::getSubKeys",
                        static_cast<int>(index));
        if (!isTooLong) {
            return false;
        }
    }
}

bool WinRegistry::listRootNames(StrVector &out) const
{
    for (const RootNames &root : kRoots) {
        out.push_back(root.longName);
    }
    return true;
}

HKEY WinRegistry::rootKey(const Str &name) const
{
    const auto root = roots_.find(name);
    return root != roots_.end() ? root->second : nullptr;
}

} // namespace velmox
