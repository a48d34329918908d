#include "util/log/log_appender.h"

#include "util/system/structured_exception.h"
#include "util/text/platform.h"

#include <charconv>

namespace velmox {

namespace {

constexpr unsigned kFileNotFound = 2;
constexpr unsigned kPathNotFound = 3;

/// Digits up to the end or white space, behind which anything may stand. A leading zero stands alone.
template <class Number>
bool parseLimit(const Str &text, Number &out)
{
    const char *const end = text.data() + text.size();
    Number value = 0;
    const auto [behind, error] = std::from_chars(text.data(), end, value);
    const bool leadingZero = text.size() > 1 && text[0] == '0' && behind > text.data() + 1;
    const bool ended = behind == end || std::string_view(" \t\n\v\f\r").find(*behind) != Str::npos;
    if (error != std::errc() || leadingZero || !ended) {
        return false;
    }
    out = value;
    return true;
}

LogReport failure(LogLevel level, unsigned error, const char *format, const Pathname &path)
{
    return {level, Str::fromErrorFormat(error, format, path.toStr().c_str())};
}

} // namespace

LogAppender::LogAppender(Str name, LogFileSystem *files) : name_(std::move(name)), files_(files) {}

bool LogAppender::append(const LogRecord &record, StrSegment message, LogReports &reports)
{
    if (disabled_) {
        return false;
    }
    Str line;
    layout_->render(record, message, line);
    const std::lock_guard held(lock_);
    bool written = false;
    guarded([&] { written = write(line, reports); });
    return written;
}

bool LogAppender::write(const Str &line, LogReports &reports)
{
    if (!hasFile()) {
        platform::writeStandardError(line.data(), line.size());
        return true;
    }
    return (file_ || open(reports)) && writeToFile(line, reports);
}

bool LogAppender::writeToFile(const Str &line, LogReports &reports)
{
    std::size_t done = 0;
    while (done < line.size()) {
        const std::ptrdiff_t count = file_->write(line.data() + done, line.size() - done);
        if (count <= 0) {
            const unsigned error = platform::lastError();
            reports.push_back(failure(LogLevel::Error, error, "Error writing to \"%s\": %m", fileName_));
            file_.reset();
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    currentSize_ += done;
    if (maximumSize_ >= 1 && currentSize_ > maximumSize_) {
        roll(reports);
    }
    return done == line.size();
}

bool LogAppender::open(LogReports &reports)
{
    file_ = files_ ? files_->openAppend(fileName_) : nullptr;
    if (!file_) {
        const unsigned error = platform::lastError();
        reports.push_back(failure(LogLevel::Error, error, "Error opening \"%s\": %m", fileName_));
        return false;
    }
    if (!file_->size(currentSize_)) {
        const unsigned error = platform::lastError();
        reports.push_back(failure(LogLevel::Error, error, "Error calling fstat on \"%s\": %m", fileName_));
        file_.reset();
        return false;
    }
    return true;
}

void LogAppender::tryOpen(LogReports &reports)
{
    const std::lock_guard held(lock_);
    // A report about another appender may have opened it already, and a file has one writer.
    file_.reset();
    open(reports);
    file_.reset();
}

void LogAppender::close()
{
    const std::lock_guard held(lock_);
    file_.reset();
}

void LogAppender::roll(LogReports &reports)
{
    file_.reset();
    for (std::uint32_t index = freeBackup(reports); index > 0; --index) {
        const Pathname from = backupName(index - 1);
        const Pathname to = backupName(index);
        if (!files_->rename(from, to)) {
            const unsigned error = platform::lastError();
            reports.push_back(
                {LogLevel::Warn, Str::fromErrorFormat(error, "Error renaming \"%s\" to \"%s\": %m",
                                                      from.toStr().c_str(), to.toStr().c_str())});
        }
    }
    open(reports);
}

/// The first index that no file holds; the last one is made free.
std::uint32_t LogAppender::freeBackup(LogReports &reports)
{
    std::uint32_t index = 0;
    while (index < maximumBackupIndex_ && files_->exists(backupName(index))) {
        ++index;
    }
    if (index == maximumBackupIndex_) {
        removeLast(backupName(index), reports);
    }
    return index;
}

void LogAppender::removeLast(const Pathname &path, LogReports &reports)
{
    if (files_->remove(path)) {
        return;
    }
    const unsigned error = platform::lastError();
    if (error != kFileNotFound && error != kPathNotFound) {
        reports.push_back(failure(LogLevel::Warn, error, "Error unlinking \"%s\": %m", path));
    }
}

Pathname LogAppender::backupName(std::uint32_t index) const
{
    return index == 0 ? fileName_ : fileName_.concat(Str::fromFormat(".%u", index));
}

void LogAppender::reset(LogFileSystem *files)
{
    close();
    files_ = files;
    disabled_ = false;
    fileName_.clear();
    maximumSize_ = 0;
    maximumBackupIndex_ = 0;
    layout_ = patternLayout_ = LogLayout::plain();
}

bool LogAppender::setProperty(StrSegment property, const Str &value)
{
    if (property == "fileName") {
        close();
        fileName_ = Pathname::fromUtf8(value);
        return true;
    }
    if (property == "maxFileSize") {
        return parseLimit(value, maximumSize_);
    }
    if (property == "maxBackupIndex") {
        return parseLimit(value, maximumBackupIndex_);
    }
    if (property == "layout") {
        return setLayout(value);
    }
    if (property == "layout.ConversionPattern") {
        layout_ = patternLayout_ = std::make_shared<const LogLayout>(value);
        return true;
    }
    return false;
}

bool LogAppender::setLayout(const Str &name)
{
    if (name == "BasicLayout") {
        layout_ = LogLayout::basic();
    } else if (name == "SimpleLayout") {
        layout_ = LogLayout::simple();
    } else if (name == "PatternLayout") {
        layout_ = patternLayout_;
    } else {
        return false;
    }
    return true;
}

} // namespace velmox
