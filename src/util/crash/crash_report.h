#pragma once

#include "util/system/windows_api.h"

namespace velmox {

class CrashNotes;
class CrashSink;

/// What is known of a crash when it is caught, on the crashing thread.
struct CrashFacts
{
    EXCEPTION_POINTERS *exception;
    DWORD threadId;
    const char *threadName;
    const CrashNotes *notes; // null for a thread that keeps none
    DWORD lastError;
    unsigned buildNumber;
};

/// Writes all sections of the report, in their order.
void writeCrashReport(CrashSink &sink, const SYSTEMTIME &localTime, const CrashFacts &facts);

} // namespace velmox
