#include "util/files/open_file.h"
#include "util/files/readable_unicode_file_star.h"
#include "util/log/log_loader.h"
#include "util/log/logger.h"
#include "util/system/last_error_keeper.h"
#include "util/text/platform.h"
#include "util/thread/thread.h"

namespace velmox {

namespace {

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
        const unsigned error = platform::lastError();
        system.bindAll();
        system.report(
            {LogLevel::Error, Str::fromErrorFormat(error, "Couldn't open log file configuration \"%s\": %m",
                                                   path.toStr().c_str())});
        return false;
    }
    readInto(loader, logCompanionPath(path), section);
    loader.applyCategories();
    system.bindAll();
    loader.finishAppenders(mayUseStderr);
    return loader.reportErrors();
}

} // namespace

bool Logger::loadConfig(const Pathname &path, const char *section, const std::map<Str, Str> &variables,
                        bool mayUseStderr)
{
    const LastErrorKeeper keeper;
    LogSystem &system = LogSystem::instance();
    system.setThreadName(Thread::currentName);
    system.reset(&systemLogFiles());
    if (!mayUseStderr) {
        system.silenceFallback();
    }
    system.start(platform::systemTime());
    return loadFiles(system, path, section, variables, mayUseStderr);
}

} // namespace velmox
