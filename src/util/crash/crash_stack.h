#pragma once

#include "util/system/windows_api.h"

namespace velmox {

class CrashSink;

/// Writes the registers of a stopped thread, a few a line.
void writeRegisters(CrashSink &sink, const CONTEXT &context);

/// Writes one line for each frame of a stopped thread's stack, as far as DbgHelp.dll can follow it.
void writeStack(CrashSink &sink, HANDLE thread, const CONTEXT &context);

} // namespace velmox
