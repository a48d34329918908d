#pragma once

#include "util/log/log_message.h"
#include "util/text/pathname.h"
#include "util/text/str.h"

#include <atomic>
#include <map>
#include <memory>
#include <vector>

namespace velmox {

// The room of the log: from a message at some `Logger` to lines at the ends of files. A logger has a
// category, a category names appenders (log_system.h), an appender has a layout (log_layout.h) and owns its
// file (log_appender.h); a configuration file (log_config.h) says all three. Below it stand rooms that do not
// log: what they have to tell comes through hooks.
//
// Any thread may log at any time. No lock is held while text is made or a failure is told, but for that of a
// logger's repeat suppressor, which comes ahead of an appender's.

class LogFileSystem;
class LogStream;
class LogSuppressor;
struct FailedAppenders;
struct LogCategory;
struct LogReport;

/// Wraps a message: both operations append to its text, `before` ahead of what the format gives and `after`
/// behind it. Called on the logging thread, and only for a message that passes the threshold.
class LogFormatCallback
{
public:
    virtual ~LogFormatCallback() = default;
    virtual void before(Str &) {}
    virtual void after(Str &) {}
};

/// One named source of log messages, usually a static object of its component.
///
/// Usable from any thread, before configuration and in static constructors, even before its own has run. No
/// operation throws or changes the thread's last error, and `%m` in a format stands for the text of the last
/// error as it was at the call.
class Logger
{
public:
    /// `name` must outlive the logger. The limits are those of the repeat suppressor, which works only when
    /// asked for: `repeatThreshold` messages of one format pass, the following ones are held back for
    /// `windowSeconds`.
    explicit Logger(const char *name, bool suppressRepeats = false, unsigned windowSeconds = 60,
                    unsigned repeatThreshold = 100);
    virtual ~Logger();
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    /// Log at a level. Below the threshold nothing is formatted.
    void debug(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void info(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void warn(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void error(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void log(LogLevel level, const char *fmt, ...) VELMOX_PRINTF(3, 4);
    /// `callback` may be null.
    void log(LogLevel level, LogFormatCallback *callback, const char *fmt, std::va_list args);

    /// Log the exception's text.
    void info(const std::exception &exception) { log(LogLevel::Info, "%s", exception.what()); }
    void warn(const std::exception &exception) { log(LogLevel::Warn, "%s", exception.what()); }
    void error(const std::exception &exception) { log(LogLevel::Error, "%s", exception.what()); }

    /// A stream that lives for one statement and logs what was put into it.
    LogStream debug();
    LogStream info();
    LogStream warn();
    LogStream error();

    /// Whether a message of the level would pass; for callers whose arguments are dear to make.
    bool isEnabled(LogLevel level) const
    {
        return static_cast<int>(level) >= threshold_.load(std::memory_order_relaxed);
    }
    bool debugEnabled() const { return isEnabled(LogLevel::Debug); }

    const char *name() const { return name_; }

    /// Reads the log configuration and its "-local" companion in the same folder, whose settings win, and
    /// binds all loggers. What goes wrong is logged; true when nothing did.
    ///
    /// With a section name only that section of the files counts, with none (null) no section does. Each
    /// `${NAME}` in an appender's value stands for the variable's value. Without `mayUseStderr` standard
    /// error is not written to for the rest of the process's life. For the main thread, before there are
    /// others.
    static bool loadConfig(const Pathname &path, const char *section, const std::map<Str, Str> &variables,
                           bool mayUseStderr);
    /// Binds every logger to the category of its name.
    static void bindAll();
    /// Changes the threshold of one component until the next configuration; false when logging is not
    /// configured or no logger has the name. For the main thread, before there are others.
    static bool setThreshold(const char *name, LogLevel level);
    /// Drops every category and every named appender; `files` serves those that follow. Loggers go back to
    /// the root category until `bindAll`. For the main thread, before there are others.
    static void reset(LogFileSystem *files);
    /// Logs what went wrong inside the logging system, under the name "Logger", to every appender but the
    /// failed ones, and to standard error when none of them took it.
    static void report(const LogReport &report, const FailedAppenders *failed = nullptr);
    static void report(const std::vector<LogReport> &reports, const FailedAppenders *failed = nullptr);

protected:
    struct Unlisted
    {
    };
    Logger(const char *name, Unlisted);

private:
    virtual bool escapesLineEnds() const { return true; }
    virtual bool truncatesLongMessages() const { return true; }

    static void writeFallback(LogLevel level, std::string_view message);

    void enter();
    void leave();
    void bind();
    void bindTo(LogCategory *category);
    bool isWritten(LogLevel level) const
    {
        return static_cast<int>(level) >= writtenFrom_.load(std::memory_order_relaxed);
    }
    bool passesUnconfigured() const;
    void write(LogLevel level, LogFormatCallback *callback, const char *fmt, std::va_list args);
    void writeGuarded(unsigned error, LogLevel level, LogFormatCallback *callback, const char *fmt,
                      std::va_list args);
    /// Leaves the formatted text in `message`.
    void writeSuppressed(Str &message, unsigned error, LogLevel level, LogFormatCallback *callback,
                         const char *fmt, std::va_list args);
    bool deliver(LogLevel level, const Str &message, const FailedAppenders *failed = nullptr);

    // A static logger that is used before its constructor ran consists of zeros: its threshold lets
    // everything through, and the message goes the way of loggers that are in no list.
    const char *name_;
    /// The category's, copied when bound.
    std::atomic<int> threshold_;
    /// What a message is tested by, so that one below it costs one load and one comparison: the threshold,
    /// except for a logger in no list, whose messages all go to standard error before configuration.
    std::atomic<int> writtenFrom_;
    bool isListed_ = false;
    /// Null until bound.
    std::atomic<LogCategory *> category_{nullptr};
    Logger *next_ = nullptr; // under the lock of the list
    std::unique_ptr<LogSuppressor> suppressor_;
};

/// A logger whose messages keep their line ends and their length.
///
/// It does not follow the configuration: its threshold is INFO, and it writes to the root appender. Before
/// configuration all its messages go to standard error, even those below, each behind its level.
class LoggerSimple : public Logger
{
public:
    explicit LoggerSimple(const char *name) : Logger(name, Unlisted()) {}

private:
    bool escapesLineEnds() const override { return false; }
    bool truncatesLongMessages() const override { return false; }
};

/// Text under way to a logger, which gets it when the stream ends, unless it is empty. When the level is off
/// nothing is made of what is put in.
class LogStream
{
public:
    LogStream(Logger &logger, LogLevel level)
        : logger_(logger.isEnabled(level) ? &logger : nullptr), level_(level)
    {
    }
    LogStream(const LogStream &) = delete;
    LogStream &operator=(const LogStream &) = delete;
    ~LogStream();

    template <class Value>
    LogStream &operator<<(const Value &value)
    {
        if (logger_) {
            append([](Str &text, const void *from) { text << *static_cast<const Value *>(from); }, &value);
        }
        return *this;
    }
    LogStream &operator<<(const char *text) { return *this << std::string_view(text); }
    LogStream &operator<<(const char16_t *text);

private:
    void append(void (*put)(Str &, const void *), const void *value) noexcept;

    Logger *const logger_;
    const LogLevel level_;
    Str text_;
};

inline LogStream Logger::debug()
{
    return LogStream(*this, LogLevel::Debug);
}

inline LogStream Logger::info()
{
    return LogStream(*this, LogLevel::Info);
}

inline LogStream Logger::warn()
{
    return LogStream(*this, LogLevel::Warn);
}

inline LogStream Logger::error()
{
    return LogStream(*this, LogLevel::Error);
}

} // namespace velmox
