#pragma once

#include "util/system/owned_handle.h"
#include "util/text/str.h"
#include "util/text/wide_str.h"

// The room `registry`: keys and values of the registry, read through the calls of Windows, and what the
// kernel calls its objects. It knows nothing of drivers, stanzas or events.
namespace velmox {

/// Keys that RegCloseKey closes.
struct RegistryKeyTraits
{
    using Type = HKEY;
    static Type invalid() { return nullptr; }
    static void close(Type key) { RegCloseKey(key); }
};

using RegistryKeyHandle = OwnedHandle<RegistryKeyTraits>;

/// Opens a key below another; a null path is the key itself. Returns the Windows error code, and leaves `key`
/// as it was on failure.
LSTATUS openKey(HKEY parent, const wchar_t *path, REGSAM access, RegistryKeyHandle &key);

/// ntdll.dll's NtQueryObject.
using NtQueryObject = LONG(WINAPI *)(HANDLE object, ULONG informationClass, void *, ULONG size,
                                     ULONG *needed);

/// Null, with the reason in the last error, if there is none.
NtQueryObject findNtQueryObject();

/// The kernel's name of an object, a key's being "\REGISTRY\MACHINE\SOFTWARE". False if it does not say.
bool queryName(NtQueryObject query, HANDLE object, WideStr &name);

/// One registry key, found by a root and a path below it. Failures give false and, all but those of
/// `queryValue`, a line in the log. Serves tools for administrators; the monitor itself does not use it.
class RegKey
{
public:
    /// The root's name and the key's serve messages alone. An empty `subKey` is the root itself.
    RegKey(HKEY rootKey, WideStr rootName, WideStr keyName, WideStr subKey);
    virtual ~RegKey() = default;

    bool open(REGSAM access);
    HKEY handle() const { return handle_.get(); }

    /// The longest name counts 16-bit units, without a NUL.
    bool queryHiveInfo(DWORD &subKeyCount, DWORD &maxSubKeyLength) const;
    /// Reads a sub key's name into room for `nameLength` 16-bit units. A name that does not fit is no
    /// failure; `out` is then what the system gave of it.
    bool enumKeyAtIndex(DWORD index, DWORD nameLength, Str &out) const;
    /// As RegQueryValueExW: `dataLength` counts bytes, the room on entry and the value's size on return.
    bool queryValue(const char16_t *name, DWORD *type, BYTE *data, DWORD *dataLength) const;

private:
    RegistryKeyHandle handle_;
    HKEY rootKey_;
    WideStr keyName_;
    WideStr rootName_;
    WideStr subKey_;
};

} // namespace velmox
