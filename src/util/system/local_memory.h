#pragma once

#include "util/system/owned_handle.h"

namespace velmox {

/// Memory of LocalAlloc.
struct LocalMemoryTraits
{
    using Type = void *;
    static Type invalid() { return nullptr; }
    static void close(Type memory) { LocalFree(memory); }
};

using LocalMemory = OwnedHandle<LocalMemoryTraits>;

} // namespace velmox
