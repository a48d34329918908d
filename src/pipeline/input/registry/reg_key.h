#pragma once

#include "pipeline/input/registry/registry_key_handle.h"
#include "util/text/str.h"

namespace velmox {

/// One registry key, found by a root and a path below it. Failures give false and, all but those of
/// `queryValue`, a line in the log.
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
