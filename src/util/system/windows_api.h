#pragma once

// The one place where the Windows headers come in: lean, and without the min and max macros. The room around
// it is where the rest of the system touches Windows in general: handles have owners here (owned_handle.h),
// the last error a keeper (last_error_keeper.h), faults of the processor become C++ exceptions
// (structured_exception.h), and what pure code asks for is answered (platform_windows.cpp, and
// platform_host.cpp for native runs).

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

#include "util/text/wide_str.h"

#include <windows.h>

namespace velmox {

/// The same 16-bit text under the name that Win32 declarations use.
inline const wchar_t *asWide(const char16_t *text)
{
    return reinterpret_cast<const wchar_t *>(text);
}
inline const wchar_t *asWide(const WideStr &text)
{
    return asWide(text.c_str());
}
inline const char16_t *asUtf16(const wchar_t *text)
{
    return reinterpret_cast<const char16_t *>(text);
}

/// Looks a routine up among what a loaded library exports. False, with a null `routine` and the reason in the
/// last error, when it is not there.
template <class Function>
bool findRoutine(HMODULE library, const char *name, Function *&routine)
{
    // Through void *, as the compiler takes a cast from FARPROC to any other function for a mistake.
    routine = reinterpret_cast<Function *>(reinterpret_cast<void *>(GetProcAddress(library, name)));
    return routine != nullptr;
}

} // namespace velmox
