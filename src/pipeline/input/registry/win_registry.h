#pragma once

#include "util/system/windows_api.h"
#include "util/text/str.h"

#include <cstdint>
#include <map>

namespace velmox {

/// Reads the Windows registry: walks trees, lists sub keys and root names.
///
/// Failures come back as Windows error codes or false; nothing throws. A walk runs on the calling thread.
class WinRegistry
{
public:
    /// Called for each sub key before it is entered; a result other than 1 keeps the walk out of it. `path`
    /// ends in a NUL, begins below the root and is valid during the call, like all that the callbacks get.
    using KeyCallback = BYTE (*)(const char16_t *path, const FILETIME &lastWriteTime, void *context);
    /// Called for each value. `path` is the key's path, a backslash and the value's name, which may be empty;
    /// the name's length counts 16-bit units, the data's bytes. `lastWriteTime` is the key's.
    using ValueCallback = void (*)(const char16_t *path, const char16_t *valueName, DWORD valueNameLength,
                                   DWORD valueType, const BYTE *data, DWORD dataLength,
                                   const FILETIME &lastWriteTime, void *context);

    WinRegistry();

    /// Walks the tree below a key, depth first, the values of each key before its sub keys. `keyCallback` may
    /// be null. Another thread ends the walk by writing something other than 0 to `*stop`; that is no error.
    ///
    /// What fails below the first key leaves no trace in the result, but for its last sub key, whose failure
    /// to open is returned. Leading backslashes of the path are skipped; a null path gives 87.
    std::uint32_t walk(HKEY rootKey, const char16_t *subKeyPath, KeyCallback keyCallback,
                       ValueCallback valueCallback, void *context, const volatile LONG *stop) const;

    /// Appends the names of the sub keys; names of more than 254 units are left out. False, with the reason
    /// logged, when they cannot all be listed.
    bool getSubKeys(HKEY key, WideStrVector &out) const;

    /// Appends the long names of the roots.
    bool listRootNames(StrVector &out) const;

    /// The predefined key of a root by its short or long name, or null.
    HKEY rootKey(const Str &name) const;

private:
    std::map<Str, HKEY> roots_;
};

} // namespace velmox
