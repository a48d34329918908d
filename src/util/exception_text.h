#pragma once

#include "util/windows_api.h"

namespace velmox {

class CrashSink;

/// Writes what a system exception is, and where it happened.
void writeExceptionRecord(CrashSink &sink, const EXCEPTION_RECORD &record);

/// Writes the C++ exception that the calling thread is handling, if any: its type with the types it derives
/// from, and its text.
void writeExceptionInFlight(CrashSink &sink);

} // namespace velmox
