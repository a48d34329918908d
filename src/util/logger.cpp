#include "util/logger.h"

#include "util/platform.h"

namespace velmox {

namespace {

constexpr LogLevel kThreshold = LogLevel::Info;

} // namespace

Logger::Logger(const char *name, bool, unsigned, unsigned) : name_(name) {}

Logger::~Logger() = default;

bool Logger::debugEnabled() const
{
    return LogLevel::Debug >= kThreshold;
}

void Logger::vlog(LogLevel level, const char *fmt, std::va_list args)
{
    if (level < kThreshold) {
        return;
    }
    const unsigned error = platform::lastError();
    try {
        Str line;
        line.vformatWithError(error, fmt, args);
        line.append("\r\n");
        platform::writeStandardError(line.data(), line.size());
    } catch (...) {
        // A message that cannot be built is lost; the caller must not feel it.
    }
    platform::setLastError(error);
}

void Logger::log(LogLevel level, const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    vlog(level, fmt, args);
    va_end(args);
}

void Logger::debug(const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    vlog(LogLevel::Debug, fmt, args);
    va_end(args);
}

void Logger::info(const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    vlog(LogLevel::Info, fmt, args);
    va_end(args);
}

void Logger::warn(const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    vlog(LogLevel::Warn, fmt, args);
    va_end(args);
}

void Logger::error(const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    vlog(LogLevel::Error, fmt, args);
    va_end(args);
}

} // namespace velmox
