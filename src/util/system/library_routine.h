#pragma once

#include "util/system/windows_api.h"

namespace velmox {

/// Looks a routine up among what a loaded library exports. False, with a null `routine` and the reason in the
/// last error, when it is not there.
template <class Function>
bool findRoutine(HMODULE library, const char *name, Function *&routine)
{
    // Through void *, for the compiler takes a cast from FARPROC to any other function for a mistake.
    routine = reinterpret_cast<Function *>(reinterpret_cast<void *>(GetProcAddress(library, name)));
    return routine != nullptr;
}

} // namespace velmox
