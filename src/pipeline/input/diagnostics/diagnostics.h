#pragma once

#include "util/log/logger.h"
#include "util/text/base_exception.h"

/// The room `diagnostics`: what every part of the monitor and of the server's side tells of itself. Here are
/// the categories of the log and the one exception; `trace.h` has the software trace, for the field.
///
/// Messages and traces name functions that begin with `WinRegistryMonitor::`, whichever class of today does
/// the work: operators search logs for these names, and tables of trace formats hold them. Where a source
/// has such a name as a constant, it is for this.
///
/// Everything here may be used from any thread.
namespace velmox {

/// The program's own category, `velmox-regmon`, which every part of the monitor writes to.
extern Logger monitorLog;

/// The category `ModularInputs`: of the server's side of input programs, and of what both sides read.
extern Logger modularInputsLog;

/// The category `WinRegistryApi`: of the reading of keys.
extern Logger registryLog;

/// The dialogue between the server and an input program went wrong.
class ModularInputsException : public BaseException
{
public:
    using BaseException::BaseException;

    /// Throws after an ERROR line of the same text. `%m` stands for the last error as it was at the call.
    [[noreturn]] static void raise(const char *fmt, ...) VELMOX_PRINTF(1, 2);
};

} // namespace velmox
