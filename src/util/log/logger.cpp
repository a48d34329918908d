#include "util/log/logger.h"

#include "util/log/log_suppressor.h"
#include "util/log/log_system.h"
#include "util/system/last_error_keeper.h"
#include "util/system/structured_exception.h"
#include "util/text/platform.h"
#include "util/time/struct_tm.h"

#include <mutex>
#include <span>

namespace velmox {

namespace {

constexpr int kEverything = 0;
constexpr int kInfo = static_cast<int>(LogLevel::Info);

/// The room of time stands below the log and names no logger: its failures come here.
Logger timeLogger("Timeval");

void logTimeFailure(const char *fmt, std::va_list args)
{
    timeLogger.log(LogLevel::Warn, nullptr, fmt, args);
}

[[maybe_unused]] const bool timeLogSet = (setTimeFailureLog(logTimeFailure), true);

void formatMessage(Str &out, unsigned error, LogFormatCallback *callback, const char *fmt, std::va_list args)
{
    if (!callback) {
        out.vformatWithError(error, fmt, args);
        return;
    }
    // Into a text of its own, as formatting clears first what the callback has put there.
    Str body;
    out.clear();
    callback->before(out);
    body.vformatWithError(error, fmt, args);
    out.append(body);
    callback->after(out);
}

/// Text that goes out whole, where a format would end it at a NUL.
class WholeText : public LogFormatCallback
{
public:
    explicit WholeText(const Str &text) : text_(text) {}
    void before(Str &out) override { out.append(text_); }
    void after(Str &) override {}

private:
    const Str &text_;
};

void reportStructuredException() noexcept
{
    try {
        guarded([] { Logger::report({LogLevel::Fatal, "caught SEH exception while trying to log!"}); });
    } catch (...) {
        // The logging system itself is broken, which is no concern of the caller.
    }
}

/// Whether loggers are bound to their categories.
std::atomic<bool> configured = false;

/// Guards the list of loggers, which begins with the one that came last, and their links. Made at first use,
/// which is that of a static constructor, and never destroyed, as static destructors log too.
struct LoggerList
{
    std::mutex lock;
    Logger *first = nullptr;
};

LoggerList &loggers()
{
    static LoggerList &list = *new LoggerList;
    return list;
}

/// The logging system's own logger.
Logger &ownLogger()
{
    static Logger &logger = *new Logger("Logger");
    return logger;
}

} // namespace

Logger::Logger(const char *name, bool suppressRepeats, unsigned windowSeconds, unsigned repeatThreshold)
    : name_(name), threshold_(kInfo), writtenFrom_(kInfo)
{
    const LastErrorKeeper keeper;
    if (suppressRepeats) {
        suppressor_ = std::make_unique<LogSuppressor>(windowSeconds, repeatThreshold);
    }
    enter();
}

Logger::Logger(const char *name, Unlisted) : name_(name), threshold_(kInfo), writtenFrom_(kEverything) {}

Logger::~Logger()
{
    if (isListed_) {
        const LastErrorKeeper keeper;
        leave();
    }
}

/// A logger that comes late is bound at once.
void Logger::enter()
{
    LoggerList &list = loggers();
    const std::lock_guard held(list.lock);
    next_ = list.first;
    list.first = this;
    isListed_ = true;
    // Asked with the lock held, as `bindAll` sets it: a logger is either in the list by then, or finds it
    // set.
    if (configured.load(std::memory_order_acquire)) {
        bind();
    }
}

void Logger::leave()
{
    LoggerList &list = loggers();
    const std::lock_guard held(list.lock);
    Logger **link = &list.first;
    while (*link != this) {
        link = &(*link)->next_;
    }
    *link = next_;
}

void Logger::bind()
{
    bindTo(&LogSystem::instance().categories().named(name_));
}

void Logger::bindTo(LogCategory *category)
{
    category_.store(category, std::memory_order_release);
    const int threshold = category ? static_cast<int>(category->threshold) : kInfo;
    threshold_.store(threshold, std::memory_order_relaxed);
    writtenFrom_.store(threshold, std::memory_order_relaxed);
}

void Logger::bindAll()
{
    // Made before the lock is taken, as its constructor takes it too.
    ownLogger();
    LoggerList &list = loggers();
    const std::lock_guard held(list.lock);
    for (Logger *logger = list.first; logger; logger = logger->next_) {
        logger->bind();
    }
    configured.store(true, std::memory_order_release);
}

bool Logger::setThreshold(const char *name, LogLevel level)
{
    LoggerList &list = loggers();
    const std::lock_guard held(list.lock);
    bool found = false;
    for (Logger *logger = list.first; logger && configured; logger = logger->next_) {
        if (std::string_view(name) == logger->name_) {
            LogSystem::instance().categories().named(name).threshold = level;
            logger->bind();
            found = true;
        }
    }
    return found;
}

void Logger::reset(LogFileSystem *files)
{
    LoggerList &list = loggers();
    const std::lock_guard held(list.lock);
    for (Logger *logger = list.first; logger; logger = logger->next_) {
        // Before the categories go, which the loggers point to.
        logger->bindTo(nullptr);
    }
    LogSystem::instance().categories().reset();
    LogSystem::instance().appenders().reset(files);
}

void Logger::report(const LogReport &report, const FailedAppenders *failed)
{
    Logger &logger = ownLogger();
    if (logger.isEnabled(report.level) && !logger.deliver(report.level, report.text, failed)) {
        writeFallback(report.level, report.text);
    }
}

void Logger::report(const LogReports &reports, const FailedAppenders *failed)
{
    for (const LogReport &each : reports) {
        report(each, failed);
    }
}

// The way of a message: `log` and its like compare the level; `write` keeps the last error and lets nothing
// out; `writeGuarded` formats, by way of the repeat suppressor where there is one; `deliver` hands the text
// to the appenders, and what fails there to the logger of this room.
//
// A listed logger's messages from before the configuration go to the root appender, which is standard error
// then. Those of a logger that is in no list, because it is a `LoggerSimple` or its constructor has yet to
// run, have no appender to go to.

/// Whether the message goes to standard error as it is: nobody has read a configuration, and the logger is
/// not among those that wait for one.
bool Logger::passesUnconfigured() const
{
    return !configured.load(std::memory_order_acquire) && !isListed_;
}

void Logger::write(LogLevel level, LogFormatCallback *callback, const char *fmt, std::va_list args)
{
    const LastErrorKeeper keeper;
    try {
        guarded([&] { writeGuarded(keeper.error(), level, callback, fmt, args); });
    } catch (const StructuredException &) {
        reportStructuredException();
    } catch (...) {
        // The message is lost: a failure to log never reaches the caller.
    }
}

void Logger::writeGuarded(unsigned error, LogLevel level, LogFormatCallback *callback, const char *fmt,
                          std::va_list args)
{
    // Outside of the try block, as what was formatted before a failure is still worth showing.
    Str message;
    try {
        if (passesUnconfigured()) {
            formatMessage(message, error, callback, fmt, args);
            writeFallback(level, message);
            return;
        }
        if (!isListed_ && level < LogLevel::Info) {
            // The first one since the configuration: from here on the comparison in front keeps them out.
            bindTo(nullptr);
            return;
        }
        if (suppressor_) {
            writeSuppressed(message, error, level, callback, fmt, args);
            return;
        }
        formatMessage(message, error, callback, fmt, args);
        deliver(level, message);
    } catch (const StructuredException &) {
        throw;
    } catch (...) {
        // What could not be formatted is told by its format.
        writeFallback(level, message.empty() ? std::string_view(fmt) : message.view());
    }
}

void Logger::writeSuppressed(Str &message, unsigned error, LogLevel level, LogFormatCallback *callback,
                             const char *fmt, std::va_list args)
{
    // The suppressor counts by the format and asks for the text with its lock held.
    const auto make = [&] {
        formatMessage(message, error, callback, fmt, args);
        return message;
    };
    suppressor_->pass(fmt, level, make, [this](LogLevel entryLevel, const Str &text) {
        if (isEnabled(entryLevel)) {
            deliver(entryLevel, text);
        }
    });
}

/// Writes the message to the appenders of the category, or to the root appender when it has none. True when
/// one of them took it.
bool Logger::deliver(LogLevel level, const Str &message, const FailedAppenders *failed)
{
    LogSystem &system = LogSystem::instance();
    LogRecord record{platform::systemTime(),  system.startTime(), name_, level,
                     truncatesLongMessages(), system.threadName()};
    Str escaped;
    // Most messages have no line end, and need no copy.
    const bool escapes = escapesLineEnds() && message.findFirst(CharSet::lineEnds(), 0, true) >= 0;
    if (escapes) {
        escaped = withVisibleLineEnds(message);
    }
    const LogCategory *category = category_.load(std::memory_order_acquire);
    LogAppender *const root = &system.appenders().root();
    std::span<LogAppender *const> appenders(&root, 1);
    if (category && !category->appenders.empty()) {
        appenders = category->appenders;
    }

    bool written = false;
    for (LogAppender *appender : appenders) {
        if (!failed || !failed->contains(appender)) {
            // The appender's lock is free again when its failures are told: they go to the others, which may
            // fail too.
            LogReports reports;
            written |= appender->append(record, escapes ? escaped : message, reports);
            const FailedAppenders withThis{appender, failed};
            // This comes to an end: each round leaves out one appender more.
            report(reports, &withThis);
        }
    }
    return written;
}

/// Piece by piece, as memory may be what is missing.
void Logger::writeFallback(LogLevel level, std::string_view message)
{
    if (LogSystem::instance().isFallbackSilenced()) {
        return;
    }
    for (const std::string_view piece :
         {logLevelName(level), std::string_view(" - "), message, std::string_view("\r\n")}) {
        platform::writeStandardError(piece.data(), piece.size());
    }
}

void Logger::log(LogLevel level, LogFormatCallback *callback, const char *fmt, std::va_list args)
{
    if (isWritten(level)) {
        write(level, callback, fmt, args);
    }
}

void Logger::log(LogLevel level, const char *fmt, ...)
{
    if (isWritten(level)) {
        std::va_list args;
        va_start(args, fmt);
        write(level, nullptr, fmt, args);
        va_end(args);
    }
}

// Each form tests the level itself, first of all: a message that is off costs a load and a comparison, and
// its arguments are not even walked.
void Logger::debug(const char *fmt, ...)
{
    if (isWritten(LogLevel::Debug)) {
        std::va_list args;
        va_start(args, fmt);
        write(LogLevel::Debug, nullptr, fmt, args);
        va_end(args);
    }
}

void Logger::info(const char *fmt, ...)
{
    if (isWritten(LogLevel::Info)) {
        std::va_list args;
        va_start(args, fmt);
        write(LogLevel::Info, nullptr, fmt, args);
        va_end(args);
    }
}

void Logger::warn(const char *fmt, ...)
{
    if (isWritten(LogLevel::Warn)) {
        std::va_list args;
        va_start(args, fmt);
        write(LogLevel::Warn, nullptr, fmt, args);
        va_end(args);
    }
}

void Logger::error(const char *fmt, ...)
{
    if (isWritten(LogLevel::Error)) {
        std::va_list args;
        va_start(args, fmt);
        write(LogLevel::Error, nullptr, fmt, args);
        va_end(args);
    }
}

LogStream::~LogStream()
{
    if (logger_ && !text_.empty()) {
        WholeText text(text_);
        // Never read: the format is empty, and the text comes from the callback.
        std::va_list none{};
        logger_->log(level_, &text, "", none);
    }
}

LogStream &LogStream::operator<<(const char16_t *text)
{
    if (logger_) {
        append([](Str &out, const void *from) { out << static_cast<const char16_t *>(from); }, text);
    }
    return *this;
}

void LogStream::append(void (*put)(Str &, const void *), const void *value) noexcept
{
    const LastErrorKeeper keeper;
    try {
        put(text_, value);
    } catch (...) {
        // What cannot be appended is lost: a failure to log never reaches the caller.
    }
}

} // namespace velmox
