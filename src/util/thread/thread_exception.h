#pragma once

#include "util/text/base_exception.h"

namespace velmox {

/// A failure of a thread, a lock or a wait.
///
/// Made with a line at WARN through the logger "Thread", so that it leaves a trace even when it is swallowed.
class ThreadException : public BaseException
{
public:
    /// `%m` in the format stands for the text of `error`.
    ThreadException(unsigned error, const char *fmt, std::va_list args);
};

[[noreturn]] void throwThreadException(unsigned error, const char *fmt, ...) VELMOX_PRINTF(2, 3);

} // namespace velmox
