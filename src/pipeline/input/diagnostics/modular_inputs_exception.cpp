#include "pipeline/input/diagnostics/modular_inputs_exception.h"

#include "pipeline/input/diagnostics/modular_inputs_log.h"
#include "util/text/platform.h"

namespace velmox {

void ModularInputsException::raise(const char *fmt, ...)
{
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
