#pragma once

#include "util/system/windows_api.h"

namespace velmox {

// What a crash report takes from DbgHelp.dll, which is found at run time. The library is not made for
// threads: one at a time may call it.

class CrashSink;

/// Writes the registers of a stopped thread, a few a line.
void writeRegisters(CrashSink &sink, const CONTEXT &context);

/// Writes one line for each frame of a stopped thread's stack, as far as DbgHelp.dll can follow it.
void writeStack(CrashSink &sink, HANDLE thread, const CONTEXT &context);

/// Writes a minidump of this process to a file. False when DbgHelp.dll cannot, or the file cannot be made.
bool writeMiniDump(const wchar_t *path, DWORD threadId, EXCEPTION_POINTERS *exception);

/// Loads the library, which is then there when the process is too broken to load one.
void loadDbgHelp();

} // namespace velmox
