#pragma once

#include "util/log/log_appender.h"

#include <map>

namespace velmox {

/// The root appender and those that a configuration names. Changed only while a configuration is loaded.
class LogAppenders
{
public:
    static constexpr std::string_view kRootName = "rootAppender";

    LogAppender &root() { return root_; }
    /// Null when no configuration has named it.
    LogAppender *find(StrSegment name);
    /// Makes the appender when it is named for the first time.
    LogAppender &obtain(StrSegment name);
    /// Drops the named ones and puts the root back to standard error. `files` serves all that follow.
    void reset(LogFileSystem *files);

    auto begin() { return named_.begin(); }
    auto end() { return named_.end(); }

private:
    LogFileSystem *files_ = nullptr;
    LogAppender root_{Str(kRootName), nullptr};
    std::map<Str, LogAppender> named_;
};

/// What loggers of one name share: which messages pass, and where they go.
struct LogCategory
{
    LogLevel threshold = LogLevel::Info;
    bool levelWasSet = false;
    /// Not owned, in the order of their naming; none means the root appender.
    std::vector<LogAppender *> appenders;

    /// Applies names of levels and appenders, separated by space, tab or comma. False at the first unknown
    /// name; what stands before it holds.
    bool apply(StrSegment value, LogAppenders &known);
};

/// All categories by name. A category stays where it is until `reset`.
class LogCategories
{
public:
    LogCategory &root() { return root_; }
    /// The category of a name, begun as a copy of the root when there is none.
    LogCategory &named(const Str &name) { return named_.try_emplace(name, root_).first->second; }
    void reset();

private:
    LogCategory root_;
    std::map<Str, LogCategory> named_;
};

/// What all loggers share besides themselves. Made at first use, also from a static constructor, and never
/// destroyed, because messages may come as late as any destructor.
class LogSystem
{
public:
    static LogSystem &instance();

    LogCategories &categories() { return categories_; }
    LogAppenders &appenders() { return appenders_; }

    /// Standard error as the last resort, from here on never again.
    void silenceFallback() { fallbackSilenced_ = true; }
    bool isFallbackSilenced() const { return fallbackSilenced_; }

    /// The moment that elapsed times count from; the first call sets it.
    void start(std::uint64_t time);
    std::uint64_t startTime() const { return startTime_; }

    /// A hook for the room of threads, which stands above: gives the calling thread's name.
    void setThreadName(Str (*threadName)()) { threadName_ = threadName; }
    Str (*threadName() const)() { return threadName_; }

private:
    LogSystem() = default;

    LogCategories categories_;
    LogAppenders appenders_;
    bool fallbackSilenced_ = false;
    std::uint64_t startTime_ = 0;
    Str (*threadName_)() = LogRecord().threadName;
};

} // namespace velmox
