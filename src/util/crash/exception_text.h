#pragma once

#include "util/system/windows_api.h"

namespace velmox {

class CrashSink;

/// STATUS_GCC_THROW of GCC's run-time library, which raises it for each C++ exception.
inline constexpr DWORD kCxxException = 0x20474343;

/// Writes what a system exception is, and where it happened.
void writeExceptionRecord(CrashSink &sink, const EXCEPTION_RECORD &record);

/// Writes the C++ exception that the calling thread is handling, if any: its type with the types it derives
/// from, and its text.
void writeExceptionInFlight(CrashSink &sink);

} // namespace velmox
