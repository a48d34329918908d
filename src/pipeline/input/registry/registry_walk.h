#pragma once

#include "pipeline/input/registry/win_registry.h"

#include <string_view>

namespace velmox {

/// One walk of `WinRegistry::walk`: whom it calls, and what ends it.
struct RegistryWalk
{
    WinRegistry::KeyCallback keyCallback;
    WinRegistry::ValueCallback valueCallback;
    void *context;
    const volatile LONG *stop;

    /// Reports the values of an open key, then visits its sub keys. `path` is the key's, below the root.
    ///
    /// Returns a Windows error code: what kept the key from being read, or the failure to open its last sub
    /// key.
    std::uint32_t visit(HKEY key, std::u16string_view path) const;
};

} // namespace velmox
