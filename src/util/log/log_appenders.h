#pragma once

#include "util/log/log_appender.h"

#include <map>

namespace velmox {

/// The root appender and those that a configuration names. Changed only while a configuration is loaded.
class LogAppenders
{
public:
    static constexpr std::string_view kRootName = "rootAppender";

    LogAppender &root() { return root_; }
    /// Null when no configuration has named it.
    LogAppender *find(StrSegment name);
    /// Makes the appender when it is named for the first time.
    LogAppender &obtain(StrSegment name);
    /// Drops the named ones and puts the root back to standard error. `files` serves all that follow.
    void reset(LogFileSystem *files);

    auto begin() { return named_.begin(); }
    auto end() { return named_.end(); }

private:
    LogFileSystem *files_ = nullptr;
    LogAppender root_{Str(kRootName), nullptr};
    std::map<Str, LogAppender> named_;
};

} // namespace velmox
