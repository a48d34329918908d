#include "util/log/logger.h"

#include "util/log/log_message.h"
#include "util/log/log_suppressor.h"
#include "util/log/log_system.h"
#include "util/system/last_error_keeper.h"
#include "util/system/structured_exception.h"
#include "util/text/platform.h"

#include <span>

namespace velmox {

namespace {

constexpr int kEverything = 0;
constexpr int kInfo = static_cast<int>(LogLevel::Info);

void formatMessage(Str &out, unsigned error, LogFormatCallback *callback, const char *fmt, std::va_list args)
{
    if (!callback) {
        out.vformatWithError(error, fmt, args);
        return;
    }
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
        guarded([] {
            LogSystem::instance().report({LogLevel::Fatal, "caught SEH exception while trying to log!"});
        });
    } catch (...) {
        // The logging system itself is broken; the caller must not feel it.
    }
}

} // namespace

Logger::Logger(const char *name, bool suppressRepeats, unsigned windowSeconds, unsigned repeatThreshold)
    : name_(name), threshold_(kInfo), writtenFrom_(kInfo)
{
    const LastErrorKeeper keeper;
    if (suppressRepeats) {
        suppressor_ = std::make_unique<LogSuppressor>(windowSeconds, repeatThreshold);
    }
    LogSystem::instance().enter(*this);
}

Logger::Logger(const char *name, Unlisted) : name_(name), threshold_(kInfo), writtenFrom_(kEverything) {}

Logger::~Logger()
{
    if (isListed_) {
        const LastErrorKeeper keeper;
        LogSystem::instance().leave(*this);
    }
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
    LogSystem::instance().bindAll();
}

bool Logger::setThreshold(const char *name, LogLevel level)
{
    return LogSystem::instance().setThreshold(name, level);
}

/// Whether the message goes to standard error as it is: nobody has read a configuration, and the logger is
/// not among those that wait for one.
bool Logger::passesUnconfigured() const
{
    return !LogSystem::isConfigured() && !isListed_;
}

void Logger::write(LogLevel level, LogFormatCallback *callback, const char *fmt, std::va_list args)
{
    const LastErrorKeeper keeper;
    try {
        guarded([&] { writeGuarded(keeper.error(), level, callback, fmt, args); });
    } catch (const StructuredException &) {
        reportStructuredException();
    } catch (...) {
        // The message is lost; the caller must not feel it.
    }
}

void Logger::writeGuarded(unsigned error, LogLevel level, LogFormatCallback *callback, const char *fmt,
                          std::va_list args)
{
    Str message;
    try {
        if (passesUnconfigured()) {
            formatMessage(message, error, callback, fmt, args);
            writeFallback(level, message);
            return;
        }
        if (!isListed_ && level < LogLevel::Info) {
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
bool Logger::deliver(LogLevel level, const Str &message, const LogCulprits *culprits)
{
    LogSystem &system = LogSystem::instance();
    LogRecord record{platform::systemTime(),  system.startTime(), name_, level,
                     truncatesLongMessages(), system.threadName()};
    Str escaped;
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
        if (!culprits || !culprits->contains(appender)) {
            LogReports reports;
            written |= appender->append(record, escapes ? escaped : message, reports);
            const LogCulprits culprit{appender, culprits};
            system.report(reports, &culprit);
        }
    }
    return written;
}

/// Piece by piece, for memory may be what is missing.
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

void Logger::info(const std::exception &exception)
{
    log(LogLevel::Info, "%s", exception.what());
}

void Logger::warn(const std::exception &exception)
{
    log(LogLevel::Warn, "%s", exception.what());
}

void Logger::error(const std::exception &exception)
{
    log(LogLevel::Error, "%s", exception.what());
}

LogStream Logger::debug()
{
    return LogStream(*this, LogLevel::Debug);
}

LogStream Logger::info()
{
    return LogStream(*this, LogLevel::Info);
}

LogStream Logger::warn()
{
    return LogStream(*this, LogLevel::Warn);
}

LogStream Logger::error()
{
    return LogStream(*this, LogLevel::Error);
}

void Logger::logThrough(LogFormatCallback &callback, LogLevel level, const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    log(level, &callback, fmt, args);
    va_end(args);
}

LogStream::~LogStream()
{
    if (logger_ && !text_.empty()) {
        WholeText text(text_);
        logger_->logThrough(text, level_, "");
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
        // What cannot be appended is lost; the caller must not feel it.
    }
}

} // namespace velmox
