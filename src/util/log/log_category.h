#pragma once

#include "util/log/log_level.h"
#include "util/text/str_segment.h"

#include <map>
#include <vector>

namespace velmox {

class LogAppender;
class LogAppenders;

/// What loggers of one name share: which messages pass, and where they go.
struct LogCategory
{
    LogLevel threshold = LogLevel::Info;
    bool levelWasSet = false;
    /// Not owned, in the order of their naming; none means the root appender.
    std::vector<LogAppender *> appenders;

    /// Applies names of levels and appenders, separated by space, tab or comma. False at the first unknown
    /// name; what stands before it holds.
    bool apply(StrSegment value, LogAppenders &known);
};

/// All categories by name. A category stays where it is until `reset`.
class LogCategories
{
public:
    LogCategory &root() { return root_; }
    /// The category of a name, begun as a copy of the root when there is none.
    LogCategory &named(const Str &name) { return named_.try_emplace(name, root_).first->second; }
    void reset();

private:
    LogCategory root_;
    std::map<Str, LogCategory> named_;
};

} // namespace velmox
