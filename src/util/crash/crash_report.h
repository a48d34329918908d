#pragma once

#include "util/system/windows_api.h"

namespace velmox {

class CrashSink;
class Thread;

/// STATUS_GCC_THROW of GCC's run-time library, which raises it for each C++ exception.
inline constexpr DWORD kCxxException = 0x20474343;

/// What is known of a crash when it is caught, on the crashing thread.
struct CrashFacts
{
    EXCEPTION_POINTERS *exception;
    DWORD threadId;
    const char *threadName;
    const Thread *thread; ///< null for one that no object stands for
    DWORD lastError;
    unsigned buildNumber;
};

/// Writes all sections of the report, in their order. A C++ exception must be in the hands of the calling
/// thread, as its type and its text are found there.
void writeCrashReport(CrashSink &sink, const SYSTEMTIME &localTime, const CrashFacts &facts);

} // namespace velmox
