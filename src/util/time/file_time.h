#pragma once

#include "util/system/windows_api.h"
#include "util/time/timeval.h"

namespace velmox {

// FILETIME, the system's form of a moment, has the ticks and the beginning of `Timeval`.

inline Timeval timevalOf(const FILETIME &time)
{
    return Timeval::fromHalves(time.dwLowDateTime, time.dwHighDateTime);
}

inline FILETIME fileTimeOf(const Timeval &moment)
{
    return {static_cast<DWORD>(moment.ticks()), static_cast<DWORD>(moment.ticks() >> 32)};
}

} // namespace velmox
