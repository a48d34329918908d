#include "util/log/log_appenders.h"

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

} // namespace velmox
