#include "pipeline/input/diagnostics/diagnostics.h"

#include "util/text/platform.h"

namespace velmox {

Logger monitorLog("velmox-regmon");
Logger modularInputsLog("ModularInputs");
Logger registryLog("WinRegistryApi");

void ModularInputsException::raise(const char *fmt, ...)
{
    // Taken before anything is allocated, which may change it.
    const unsigned error = platform::lastError();
    Str message;
    std::va_list args;
    va_start(args, fmt);
    message.vformatWithError(error, fmt, args);
    va_end(args);
    modularInputsLog.error("%s", message.c_str());
    throw ModularInputsException(std::move(message));
}

} // namespace velmox
