#pragma once

#include "util/system/windows_api.h"
#include "util/text/wide_str.h"

namespace velmox {

/// ntdll.dll's NtQueryObject.
using NtQueryObject = LONG(WINAPI *)(HANDLE object, ULONG informationClass, void *, ULONG size,
                                     ULONG *needed);

/// Null, with the reason in the last error, if there is none.
NtQueryObject findNtQueryObject();

/// The kernel's name of an object, a key's being "\REGISTRY\MACHINE\SOFTWARE". False if it does not say.
bool queryName(NtQueryObject query, HANDLE object, WideStr &name);

} // namespace velmox
