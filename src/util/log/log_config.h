#pragma once

#include "util/text/str_segment.h"

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

} // namespace velmox
