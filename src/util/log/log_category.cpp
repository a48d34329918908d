#include "util/log/log_category.h"

#include "util/log/log_appenders.h"

namespace velmox {

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

} // namespace velmox
