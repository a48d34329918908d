#include "util/thread/thread_exception.h"

#include "util/log/logger.h"
#include "util/text/argument_list_end.h"

namespace velmox {

namespace {

Logger threadLogger("Thread");

} // namespace

ThreadException::ThreadException(unsigned error, const char *fmt, std::va_list args)
    : BaseException(error, fmt, args)
{
    threadLogger.warn("%s", what());
}

void throwThreadException(unsigned error, const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    const ArgumentListEnd end{args};
    throw ThreadException(error, fmt, args);
}

} // namespace velmox
