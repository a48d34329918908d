#include "util/files/file_descriptor.h"
#include "util/files/file_star.h"
#include "util/files/file_system.h"
#include "util/files/readable_unicode_stream.h"
#include "util/log/log_config.h"
#include "util/log/logger.h"
#include "util/system/last_error_keeper.h"
#include "util/text/platform.h"

namespace velmox {

namespace {

class SystemLogFile : public LogFile
{
public:
    explicit SystemLogFile(FileDescriptor file) : file_(std::move(file)) {}

    bool size(std::uint64_t &bytes) override
    {
        LARGE_INTEGER size;
        if (!GetFileSizeEx(file_.get(), &size)) {
            return false;
        }
        bytes = static_cast<std::uint64_t>(size.QuadPart);
        return true;
    }

    std::ptrdiff_t write(const char *bytes, std::size_t length) override
    {
        return file_.write(bytes, length);
    }

private:
    FileDescriptor file_;
};

class SystemLogFiles : public LogFileSystem
{
public:
    std::unique_ptr<LogFile> openAppend(const Pathname &path) override
    {
        FileDescriptor file;
        if (!file.openAppend(path, FilePermissions::PublicRead)) {
            return nullptr;
        }
        return std::make_unique<SystemLogFile>(std::move(file));
    }

    bool exists(const Pathname &path) override { return pathKind(path) != PathKind::Nothing; }
    bool remove(const Pathname &path) override { return removeFile(path); }
    bool rename(const Pathname &from, const Pathname &to) override { return moveFile(from, to); }
};

LogFileSystem &systemLogFiles()
{
    // Never destroyed: appenders use it as late as messages come.
    static SystemLogFiles &files = *new SystemLogFiles;
    return files;
}

bool readInto(LogConfigLoader &loader, const Pathname &path, const char *section)
{
    const FileStar file = openFile(path, "rb");
    if (!file.isOpen()) {
        return false;
    }
    ReadableUnicodeFileStar reader(file.get());
    loader.readFile(path.toStr(), section, [&](StrSegment &line) { return reader.readLine(line); });
    return true;
}

bool loadFiles(LogSystem &system, const Pathname &path, const char *section,
               const std::map<Str, Str> &variables, bool mayUseStderr)
{
    LogConfigLoader loader(system, variables);
    if (!readInto(loader, path, section)) {
        // Read before anything else; then bound, as the report goes the way of any message.
        const unsigned error = platform::lastError();
        Logger::bindAll();
        Logger::report(
            {LogLevel::Error, Str::fromErrorFormat(error, "Couldn't open log file configuration \"%s\": %m",
                                                   path.toStr().c_str())});
        return false;
    }
    // It may be missing, as it usually is. Read second, so that its settings win, and before the categories
    // are applied, which may name the appenders of either file.
    readInto(loader, logCompanionPath(path), section);
    loader.applyCategories();
    Logger::bindAll();
    // Behind the binding, because what it finds wrong is logged, by the appenders just configured.
    loader.finishAppenders(mayUseStderr);
    return loader.reportErrors();
}

} // namespace

bool Logger::loadConfig(const Pathname &path, const char *section, const std::map<Str, Str> &variables,
                        bool mayUseStderr)
{
    const LastErrorKeeper keeper;
    LogSystem &system = LogSystem::instance();
    reset(&systemLogFiles());
    // First of all, as whatever follows may have something to report.
    if (!mayUseStderr) {
        system.silenceFallback();
    }
    system.start(platform::systemTime());
    return loadFiles(system, path, section, variables, mayUseStderr);
}

} // namespace velmox
