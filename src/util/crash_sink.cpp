#include "util/crash_sink.h"

#include <cstring>

namespace velmox {

CrashSink::~CrashSink() = default;

void CrashSink::print(const char *text)
{
    write(text, std::strlen(text));
}

void CrashSink::format(const char *fmt, ...)
{
    Str text;
    std::va_list args;
    va_start(args, fmt);
    text.vformat(fmt, args);
    va_end(args);
    print(text);
}

} // namespace velmox
