#pragma once

// The one place where the Windows headers come in: lean, and without the min and max macros.

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

} // namespace velmox
