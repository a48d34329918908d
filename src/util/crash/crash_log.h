#pragma once

#include "util/text/pathname.h"

namespace velmox {

// The crash log is what a process leaves behind when it dies of a fatal exception: a text file with what is
// known at that moment, and a dump beside it. A C++ exception that nobody catches counts, on any thread.

/// Has fatal exceptions reported from here on; the main thread's object calls it. Until the log is armed a
/// report goes to standard error, and there is no dump.
void installCrashHandlers();

/// Names the folder for crash logs, which must exist by the time of the crash, loads what writing them takes,
/// and has bad arguments of the C run-time library logged.
void armCrashLog(const Pathname &folder);

/// `var\log\velmox` under `VELMOX_HOME`, or the current folder if that is not set.
Pathname crashLogFolder();

/// Keeps some of the calling thread's stack back, so that the end of the rest can still be reported.
void reserveStackForCrash();

} // namespace velmox
