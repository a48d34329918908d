#pragma once

#include "util/str.h"

namespace velmox {

/// Severity of a message. A message is written when its level is at or above the threshold in force.
enum class LogLevel : int
{
    Debug,
    Info,
    Notice,
    Warn,
    Error,
    Crit,
    Alert,
    Fatal,
    Emerg
};

/// One named source of log messages, usually a static object of its component.
///
/// Usable from any thread, before configuration and in static constructors. No operation throws or changes
/// the thread's last error, and `%m` in a format stands for the text of the last error as it was at the call.
class Logger
{
public:
    /// `name` must outlive the logger. The limits are those of the repeat suppressor, which works only when
    /// asked for: `repeatThreshold` equal messages pass within `windowSeconds`.
    explicit Logger(const char *name, bool suppressRepeats = false, unsigned windowSeconds = 60,
                    unsigned repeatThreshold = 100);
    virtual ~Logger();
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    void debug(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void info(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void warn(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void error(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void log(LogLevel level, const char *fmt, ...) VELMOX_PRINTF(3, 4);
    void vlog(LogLevel level, const char *fmt, std::va_list args);

    bool debugEnabled() const;

private:
    virtual bool escapesLineEnds() const { return true; }
    virtual bool truncatesLongMessages() const { return true; }

    const char *name_;
};

/// A logger whose messages keep their line ends and their length.
class LoggerSimple : public Logger
{
public:
    explicit LoggerSimple(const char *name) : Logger(name) {}

private:
    bool escapesLineEnds() const override { return false; }
    bool truncatesLongMessages() const override { return false; }
};

} // namespace velmox
