#include "util/log/log_appender.h"

#include "util/system/structured_exception.h"
#include "util/text/platform.h"

#include <charconv>

namespace velmox {

namespace {

// ERROR_FILE_NOT_FOUND and ERROR_PATH_NOT_FOUND, by their numbers: this file is built without the headers of
// Windows too.
constexpr unsigned kFileNotFound = 2;
constexpr unsigned kPathNotFound = 3;

/// Digits up to the end or white space, behind which anything may stand. A zero with digits behind it is
/// refused rather than guessed at, for other readers of such files would take the number as octal.
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

/// Adds the reason of the call that has just failed.
void addFailure(LogReports &reports, LogLevel level, const char *format, const Pathname &path)
{
    const unsigned error = platform::lastError();
    reports.push_back({level, Str::fromErrorFormat(error, format, path.toStr().c_str())});
}

} // namespace

LogAppender::LogAppender(Str name, LogFileSystem *files) : name_(std::move(name)), files_(files) {}

/// Makes the line before it takes the lock, which guards the file alone. A fault of the system inside must
/// not leave the lock taken, so it comes out as an exception.
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

/// A write that fails closes the file, so that the next line tries to open it anew. What a file may hold is
/// tested behind each line: a file is longer than its limit by one line at most, and no line is torn.
bool LogAppender::writeToFile(const Str &line, LogReports &reports)
{
    std::size_t done = 0;
    while (done < line.size()) {
        const std::ptrdiff_t count = file_->write(line.data() + done, line.size() - done);
        // Nothing written is a failure as well: a disk that takes no more must not keep the loop here.
        if (count <= 0) {
            addFailure(reports, LogLevel::Error, "Error writing to \"%s\": %m", fileName_);
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
    // What earlier runs left in the file counts towards its limit, so that its size is asked for below.
    file_ = files_ ? files_->openAppend(fileName_) : nullptr;
    if (!file_) {
        addFailure(reports, LogLevel::Error, "Error opening \"%s\": %m", fileName_);
        return false;
    }
    if (!file_->size(currentSize_)) {
        addFailure(reports, LogLevel::Error, "Error calling fstat on \"%s\": %m", fileName_);
        file_.reset();
        return false;
    }
    return true;
}

/// Only to tell early what is wrong: the first line opens the file for good.
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

/// From the last backup to the file itself, each takes the name behind its own; so no name is taken twice.
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
    // With no backups allowed this is the file itself, which is begun anew.
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
    // That there is none is usual, until the backups have come to their last index.
    if (error != kFileNotFound && error != kPathNotFound) {
        addFailure(reports, LogLevel::Warn, "Error unlinking \"%s\": %m", path);
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
        // In force at once, and kept for a "PatternLayout" that comes behind another layout.
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
