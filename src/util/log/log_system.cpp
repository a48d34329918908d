#include "util/log/log_system.h"

namespace velmox {

LogAppender *LogAppenders::find(StrSegment name)
{
    if (name.view() == kRootName) {
        return &root_;
    }
    const auto found = named_.find(name.toStr());
    return found == named_.end() ? nullptr : &found->second;
}

LogAppender &LogAppenders::obtain(StrSegment name)
{
    if (LogAppender *known = find(name)) {
        return *known;
    }
    const Str key = name.toStr();
    return named_.try_emplace(key, key, files_).first->second;
}

void LogAppenders::reset(LogFileSystem *files)
{
    files_ = files;
    named_.clear();
    root_.reset(files);
}

bool LogCategory::apply(StrSegment value, LogAppenders &known)
{
    constexpr std::string_view kSeparators = " \t,";
    const std::string_view text = value.view();
    bool firstAppender = true;
    std::size_t start = 0;
    while ((start = text.find_first_not_of(kSeparators, start)) != Str::npos) {
        const std::string_view token = text.substr(start, text.find_first_of(kSeparators, start) - start);
        start += token.size();
        if (const auto level = logLevelNamed(token)) {
            threshold = *level;
            levelWasSet = true;
        } else if (LogAppender *appender = known.find(token)) {
            // A category begins with the root's appenders. The first that it names itself takes the place of
            // all these.
            if (firstAppender) {
                appenders.clear();
                firstAppender = false;
            }
            appenders.push_back(appender);
        } else {
            return false;
        }
    }
    return true;
}

void LogCategories::reset()
{
    root_ = LogCategory();
    named_.clear();
}

LogSystem &LogSystem::instance()
{
    static LogSystem &system = *new LogSystem;
    return system;
}

void LogSystem::start(std::uint64_t time)
{
    // A configuration that is read again does not begin the time anew.
    if (startTime_ == 0) {
        startTime_ = time;
    }
}

} // namespace velmox
