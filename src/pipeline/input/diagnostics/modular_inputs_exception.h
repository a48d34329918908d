#pragma once

#include "util/text/base_exception.h"

namespace velmox {

/// The dialogue between the server and an input program went wrong.
class ModularInputsException : public BaseException
{
public:
    using BaseException::BaseException;

    /// Throws after an ERROR line of the same text. `%m` stands for the last error as it was at the call.
    [[noreturn]] static void raise(const char *fmt, ...) VELMOX_PRINTF(1, 2);
};

} // namespace velmox
