#include "conf/file/conf_line_reader.h"
#include "conf/file/ini_file.h"
#include "util/files/file_replace.h"
#include "util/files/file_star.h"
#include "util/files/file_system.h"
#include "util/files/readable_unicode_stream.h"
#include "util/files/writable_unicode_stream.h"
#include "util/system/windows_api.h"

namespace velmox {

namespace {

// A reader or a virus scanner that has the destination open keeps it from being replaced, for moments.
constexpr unsigned kRenameAttempts = 20;
constexpr unsigned kRenameSleepMs = 100;

} // namespace

IniFile::IniFile(const Pathname &path)
{
    load(path);
}

IniFile::IniFile(FileStar stream, const Pathname &path) : destination_(path)
{
    loadFrom(std::move(stream));
}

void IniFile::load(const Pathname &path)
{
    destination_ = path;
    loadFrom(openFile(destination_, "r"));
}

void IniFile::loadFrom(FileStar stream)
{
    const Str name = destination_.toStr();
    if (!stream.isOpen()) {
        iniLog.error("Cannot open file=%s for parsing: %m", name.c_str());
        clear();
        loaded_ = false;
        return;
    }
    // The decoder sees to line ends itself, and counts them.
    stream.setBinary();
    ReadableUnicodeFileStar text(stream.get());
    read(text, destination_);
    // A part must not pass for the whole, which it would replace on the next flush.
    if (std::ferror(stream.get())) {
        iniLog.error("Cannot read file=%s: %m", name.c_str());
        clear();
        loaded_ = false;
    }
}

bool IniFile::writeTo(const Pathname &path)
{
    const Str name = path.toStr();
    FileStar file = openFile(path, "w");
    if (!file.isOpen()) {
        iniLog.error("Cannot open tmpfile=%s: %m", name.c_str());
        return false;
    }
    if (writeTo(file, name)) {
        return true;
    }
    // Half a file is of no use to anybody, and takes up the room on the disk that others need.
    file.close();
    removeFile(path);
    return false;
}

bool IniFile::writeTo(FileStar &file, const Str &name)
{
    // Line ends are the encoder's: a translation on top of it would double the CR.
    if (!file.setBinary()) {
        iniLog.error("Cannot open unicode-translated tmpfile=%s: %m", name.c_str());
        return false;
    }
    WritableUnicodeFileStar out(file.get());
    write(out);
    if (!out.flush()) {
        iniLog.error("Cannot flush tmpfile=%s: %m", name.c_str());
        return false;
    }
    return true;
}

bool IniFile::flush()
{
    if (destination_.empty()) {
        iniLog.error("No destination set for IniFile flush");
        return false;
    }
    // In the same directory, as a file can be renamed over another only on its own volume. The process number
    // keeps writers of one file apart.
    const Pathname temporary = destination_.concat(Str::fromFormat(".%lu.tmp", GetCurrentProcessId()));
    if (!writeTo(temporary)) {
        iniLog.error("Error while writing to: %s", temporary.toStr().c_str());
        return false;
    }
    return renameToDestination(temporary);
}

/// The temporary file stays behind when it cannot be renamed.
bool IniFile::renameToDestination(const Pathname &temporary) const
{
    RetryResult result;
    const bool renamed = renameWithRetries(temporary, result, destination_, kRenameAttempts, kRenameSleepMs);
    const Str from = temporary.toStr();
    const Str to = destination_.toStr();
    const Str report = result.toStr();
    if (renamed) {
        const LogLevel level = result.attempts == 1 ? LogLevel::Info : LogLevel::Warn;
        iniLog.log(level, "Renamed %s to %s: %s", from.c_str(), to.c_str(), report.c_str());
    } else {
        iniLog.error("Cannot rename %s to %s: %s", from.c_str(), to.c_str(), report.c_str());
    }
    return renamed;
}

} // namespace velmox
