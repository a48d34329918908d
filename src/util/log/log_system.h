#pragma once

#include "util/log/log_appenders.h"
#include "util/log/log_category.h"

#include <atomic>
#include <mutex>

namespace velmox {

class Logger;

/// Appenders that failed while one message was on its way, innermost first. What is reported about them is
/// not sent to any of them again.
struct LogCulprits
{
    const LogAppender *appender = nullptr;
    const LogCulprits *outer = nullptr;

    bool contains(const LogAppender *candidate) const
    {
        return appender == candidate || (outer && outer->contains(candidate));
    }
};

/// What all loggers share. Made at first use, also from a static constructor, and never destroyed, because
/// messages may come as late as any destructor.
class LogSystem
{
public:
    static LogSystem &instance();

    /// Whether loggers are bound to their categories.
    static bool isConfigured() { return configured_.load(std::memory_order_acquire); }

    LogCategories &categories() { return categories_; }
    LogAppenders &appenders() { return appenders_; }

    /// Drops every category and named appender. Loggers go back to the root category until `bindAll`.
    void reset(LogFileSystem *files);
    void bindAll();
    /// False when nothing is bound yet or no logger has the name.
    bool setThreshold(const Str &name, LogLevel level);

    /// Loggers enter at the head, bound at once if that has been done for the others.
    void enter(Logger &logger);
    void leave(Logger &logger);

    /// Standard error as the last resort, from here on never again.
    void silenceFallback() { fallbackSilenced_ = true; }
    bool isFallbackSilenced() const { return fallbackSilenced_; }

    /// The moment that elapsed times count from; the first call sets it.
    void start(std::uint64_t time);
    std::uint64_t startTime() const { return startTime_; }

    void setThreadName(Str (*threadName)()) { threadName_ = threadName; }
    Str (*threadName() const)() { return threadName_; }

    /// Logs what went wrong inside the logging system, under the name "Logger", to every appender but the
    /// culprits, and to standard error when none of them took it.
    void report(const LogReport &report, const LogCulprits *culprits = nullptr);
    void report(const LogReports &reports, const LogCulprits *culprits = nullptr);

private:
    LogSystem() = default;
    void bind(Logger &logger);

    inline static std::atomic<bool> configured_{false};

    LogCategories categories_;
    LogAppenders appenders_;
    bool fallbackSilenced_ = false;
    std::uint64_t startTime_ = 0;
    Str (*threadName_)() = LogRecord().threadName;

    std::mutex loggersLock_;
    /// Guarded by `loggersLock_`, with the loggers' links.
    Logger *loggers_ = nullptr;
};

} // namespace velmox
