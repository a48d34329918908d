#pragma once

#include "util/system/windows_api.h"

namespace velmox {

/// Lock on a critical section, for short stretches without a wait. Recursive. Usable with std::lock_guard.
class CriticalSection
{
public:
    CriticalSection() { InitializeCriticalSection(&section_); }
    CriticalSection(const CriticalSection &) = delete;
    CriticalSection &operator=(const CriticalSection &) = delete;
    ~CriticalSection() { DeleteCriticalSection(&section_); }

    void lock() { EnterCriticalSection(&section_); }
    void unlock() { LeaveCriticalSection(&section_); }

private:
    CRITICAL_SECTION section_;
};

} // namespace velmox
