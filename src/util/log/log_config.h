#pragma once

#include "util/log/log_system.h"

#include <map>
#include <optional>

namespace velmox {

/// Where a setting stands: the file's name, the line counted from 1, and the line's content without comments
/// and outer blanks.
struct LogConfigLine
{
    Str file;
    unsigned line = 0;
    Str text;
};

/// Receives the settings of a configuration file in their order.
class LogConfigHandler
{
public:
    virtual ~LogConfigHandler() = default;
    virtual void rootCategory(StrSegment value, const LogConfigLine &at) = 0;
    /// `rest` is all that follows "category.".
    virtual void category(StrSegment rest, const LogConfigLine &at) = 0;
    /// An appender is named. The other form sets a property of it and tells whether that was accepted.
    virtual void appender(StrSegment name) = 0;
    virtual bool appenderProperty(StrSegment name, StrSegment property, StrSegment value) = 0;
    virtual void parseError(const LogConfigLine &at) = 0;
    /// A comment was begun at this line and not ended.
    virtual void unterminatedComment(const LogConfigLine &at) = 0;
};

/// Reads the lines of one file.
///
/// `#` and `<!-- -->` begin comments, the latter over any number of lines. A section header switches the
/// lines behind it on or off; those in front of the first always count.
class LogConfigParser
{
public:
    /// With an empty `section` every header switches the lines off.
    LogConfigParser(Str file, Str section, LogConfigHandler &handler);

    /// Takes the next line, without its line end.
    void line(StrSegment text);
    /// To be called behind the last line.
    void end();

private:
    bool reopenComment(Str &text);
    bool cutComments(Str &text);
    void content(StrSegment text);
    void header(StrSegment text);
    bool setting(StrSegment text);
    bool rootCategory(StrSegment text);
    bool appender(StrSegment text);

    const Str file_;
    const Str section_;
    LogConfigHandler &handler_;
    unsigned lineNumber_ = 0;
    bool counts_ = true;
    LogConfigLine current_;
    /// The line on which the open comment began, 0 when none is open, and the text in front of it.
    unsigned commentLine_ = 0;
    Str kept_;
};

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
    void ignoreBackupsWithoutRolling(LogAppender &appender, const char *shownName);
    void tryOpen(LogAppender &appender);

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
