#include "util/log/log_system.h"

#include "util/log/logger.h"

namespace velmox {

namespace {

/// The logging system's own logger.
Logger &ownLogger()
{
    static Logger &logger = *new Logger("Logger");
    return logger;
}

} // namespace

LogSystem &LogSystem::instance()
{
    static LogSystem &system = *new LogSystem;
    return system;
}

void LogSystem::enter(Logger &logger)
{
    const std::lock_guard held(loggersLock_);
    logger.next_ = loggers_;
    loggers_ = &logger;
    logger.isListed_ = true;
    if (isConfigured()) {
        bind(logger);
    }
}

void LogSystem::leave(Logger &logger)
{
    const std::lock_guard held(loggersLock_);
    for (Logger **link = &loggers_; *link; link = &(*link)->next_) {
        if (*link == &logger) {
            *link = logger.next_;
            return;
        }
    }
}

void LogSystem::bind(Logger &logger)
{
    logger.bindTo(&categories_.named(logger.name()));
}

void LogSystem::bindAll()
{
    ownLogger();
    const std::lock_guard held(loggersLock_);
    for (Logger *logger = loggers_; logger; logger = logger->next_) {
        bind(*logger);
    }
    configured_.store(true, std::memory_order_release);
}

bool LogSystem::setThreshold(const Str &name, LogLevel level)
{
    const std::lock_guard held(loggersLock_);
    bool found = false;
    for (Logger *logger = loggers_; logger && isConfigured(); logger = logger->next_) {
        if (name == logger->name()) {
            categories_.named(name).threshold = level;
            bind(*logger);
            found = true;
        }
    }
    return found;
}

void LogSystem::reset(LogFileSystem *files)
{
    const std::lock_guard held(loggersLock_);
    for (Logger *logger = loggers_; logger; logger = logger->next_) {
        logger->bindTo(nullptr);
    }
    categories_.reset();
    appenders_.reset(files);
}

void LogSystem::start(std::uint64_t time)
{
    if (startTime_ == 0) {
        startTime_ = time;
    }
}

void LogSystem::report(const LogReport &report, const LogCulprits *culprits)
{
    Logger &logger = ownLogger();
    if (logger.isEnabled(report.level) && !logger.deliver(report.level, report.text, culprits)) {
        Logger::writeFallback(report.level, report.text);
    }
}

void LogSystem::report(const LogReports &reports, const LogCulprits *culprits)
{
    for (const LogReport &each : reports) {
        report(each, culprits);
    }
}

} // namespace velmox
