#pragma once

#include "util/system/owned_handle.h"

namespace velmox {

/// Keys that RegCloseKey closes.
struct RegistryKeyTraits
{
    using Type = HKEY;
    static Type invalid() { return nullptr; }
    static void close(Type key) { RegCloseKey(key); }
};

using RegistryKeyHandle = OwnedHandle<RegistryKeyTraits>;

/// Opens a key below another for reading; returns the Windows error code.
inline LSTATUS openForReading(HKEY parent, const wchar_t *path, RegistryKeyHandle &key)
{
    HKEY opened = nullptr;
    const LSTATUS result = RegOpenKeyExW(parent, path, 0, KEY_READ, &opened);
    key.reset(result == ERROR_SUCCESS ? opened : nullptr);
    return result;
}

} // namespace velmox
