#pragma once

#include "util/log/log_config.h"
#include "util/log/log_system.h"

#include <map>
#include <optional>

namespace velmox {

/// Brings configuration files into the logging system: settings of appenders as they are read, categories
/// when all files have been, so that a category may name any appender.
class LogConfigLoader : private LogConfigHandler
{
public:
    LogConfigLoader(LogSystem &system, const std::map<Str, Str> &variables)
        : system_(system), variables_(variables)
    {
    }

    /// Reads one file, from `nextLine` until that gives false.
    template <class NextLine>
    void readFile(const Str &name, const char *section, NextLine &&nextLine)
    {
        LogConfigParser parser(name, section ? section : "", *this);
        for (StrSegment line; nextLine(line);) {
            parser.line(line);
        }
        parser.end();
    }

    void applyCategories();
    /// Puts right what the appenders lack, telling it, and tries their files.
    void finishAppenders(bool mayUseStderr);
    /// Logs what was wrong with the files; true when nothing was.
    bool reportErrors();

private:
    struct CategoryLine
    {
        Str value;
        LogConfigLine at;
    };

    void rootCategory(StrSegment value, const LogConfigLine &at) override;
    void category(StrSegment rest, const LogConfigLine &at) override;
    void appender(StrSegment name) override;
    bool appenderProperty(StrSegment name, StrSegment property, StrSegment value) override;
    void parseError(const LogConfigLine &at) override;
    void unterminatedComment(const LogConfigLine &at) override;

    bool applyCategory(const Str &line);
    void finishAppender(LogAppender &appender, bool mayUseStderr);
    void finishWithoutFile(LogAppender &appender, bool mayUseStderr);
    void finishRoot();
    void ignoreLonelyBackups(LogAppender &appender, const char *shownName);
    void tryOpen(LogAppender &appender);
    void warn(const Str &text);

    LogSystem &system_;
    const std::map<Str, Str> &variables_;
    std::optional<CategoryLine> root_;
    std::vector<CategoryLine> categories_;
    LogReports errors_;
};

/// The companion's path: "-local" goes in before the last point of the file's name, or behind a name that has
/// none but in front.
Pathname logCompanionPath(const Pathname &path);

} // namespace velmox
