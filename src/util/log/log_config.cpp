#include "util/log/log_config.h"

#include "util/log/logger.h"

#include <utility>

namespace velmox {

namespace {

constexpr std::string_view kCommentBegin = "<!--";
constexpr std::string_view kCommentEnd = "-->";
constexpr std::string_view kIgnoredPrefix = "log4cpp.";
constexpr std::string_view kNameEnd = ". \t=";

/// Takes the text up to a byte of `ends` off the front; false, with nothing taken, when there is none.
bool takeName(std::string_view &text, std::string_view ends, std::string_view &name)
{
    const std::size_t length = text.find_first_of(ends);
    if (length == std::string_view::npos) {
        return false;
    }
    name = text.substr(0, length);
    text.remove_prefix(length);
    return true;
}

/// Takes an equals sign and the blanks around it off the front.
bool takeEquals(std::string_view &text)
{
    const auto fromContent = [](StrSegment part) {
        return part.trimmed(CharSet::blanks(), true, false).view();
    };
    text = fromContent(text);
    if (!text.starts_with('=')) {
        return false;
    }
    text = fromContent(text.substr(1));
    return true;
}

void warn(const Str &text)
{
    Logger::report({LogLevel::Warn, text});
}

void warnOfIgnored(const char *appender, const char *property, const char *missing)
{
    warn(Str::fromFormat("Appender \"%s\" has %s set without specifying %s, ignoring", appender, property,
                         missing));
}

} // namespace

LogConfigParser::LogConfigParser(Str file, Str section, LogConfigHandler &handler)
    : file_(std::move(file)), section_(std::move(section)), handler_(handler)
{
}

void LogConfigParser::line(StrSegment text)
{
    ++lineNumber_;
    Str whole = text.toStr();
    if (!reopenComment(whole) || !cutComments(whole)) {
        return;
    }
    whole.trim();
    if (!whole.empty()) {
        content(whole);
    }
}

/// Joins what stands behind the open comment to what stood in front of it; false when it does not end here.
bool LogConfigParser::reopenComment(Str &text)
{
    if (commentLine_ == 0) {
        return true;
    }
    const std::size_t end = text.find(kCommentEnd);
    if (end == Str::npos) {
        return false;
    }
    text = Str::concat(kept_, text.substr(end + kCommentEnd.size()));
    commentLine_ = 0;
    return true;
}

/// Removes the comments of a line; false when one is left open.
bool LogConfigParser::cutComments(Str &text)
{
    for (;;) {
        const std::size_t begin = text.find(kCommentBegin);
        const std::size_t hash = text.find('#');
        // What is not found stands at npos, behind everything: then the other kind of comment decides.
        if (hash < begin) {
            text.erase(hash);
            return true;
        }
        if (begin == Str::npos) {
            return true;
        }
        const std::size_t end = text.find(kCommentEnd, begin + kCommentBegin.size());
        if (end == Str::npos) {
            kept_ = text.substr(0, begin);
            commentLine_ = lineNumber_;
            return false;
        }
        // And again from the front: what stood on both sides may have joined to the beginning of another
        // comment.
        text.erase(begin, end + kCommentEnd.size() - begin);
    }
}

void LogConfigParser::end()
{
    if (commentLine_ != 0) {
        handler_.unterminatedComment({file_, commentLine_, kept_});
    }
}

void LogConfigParser::content(StrSegment text)
{
    current_ = {file_, lineNumber_, text.toStr()};
    if (text[0] == '[') {
        header(text);
    } else if (counts_ && !setting(text)) {
        handler_.parseError(current_);
    }
}

void LogConfigParser::header(StrSegment text)
{
    static constexpr CharSet kHeaderEnd(" \t]");
    const StrSegment name = text.substr(1).trimmed(kHeaderEnd, false, true);
    counts_ = !section_.empty() && name.toStr().compareCaseless(section_) == 0;
}

/// One setting. A prefix that other readers of such files want is skipped, once; keys are told apart by what
/// ends them, as a category's name may hold points and an appender's may not.
bool LogConfigParser::setting(StrSegment text)
{
    std::string_view rest = text.view();
    if (rest.starts_with(kIgnoredPrefix)) {
        rest.remove_prefix(kIgnoredPrefix.size());
    }
    std::string_view key;
    if (!takeName(rest, kNameEnd, key)) {
        return false;
    }
    if (key == "rootCategory") {
        return rootCategory(rest);
    }
    if (key == "category" && rest[0] == '.') {
        handler_.category(rest.substr(1), current_);
        return true;
    }
    return key == "appender" && rest[0] == '.' && appender(rest.substr(1));
}

bool LogConfigParser::rootCategory(StrSegment text)
{
    std::string_view value = text.view();
    if (!takeEquals(value)) {
        return false;
    }
    handler_.rootCategory(value, current_);
    return true;
}

bool LogConfigParser::appender(StrSegment text)
{
    std::string_view rest = text.view();
    std::string_view name;
    if (!takeName(rest, kNameEnd, name) || name.empty()) {
        return false;
    }
    if (rest[0] != '.') {
        if (!takeEquals(rest)) {
            return false;
        }
        // What stands behind the sign names a class to other readers of such files. Here all appenders are of
        // one kind.
        handler_.appender(name);
        return true;
    }
    rest.remove_prefix(1);
    std::string_view property;
    return takeName(rest, " \t=", property) && takeEquals(rest) &&
           handler_.appenderProperty(name, property, rest);
}

void LogConfigLoader::rootCategory(StrSegment value, const LogConfigLine &at)
{
    root_ = CategoryLine{value.toStr(), at};
}

void LogConfigLoader::category(StrSegment rest, const LogConfigLine &at)
{
    categories_.push_back({rest.toStr(), at});
}

void LogConfigLoader::appender(StrSegment name)
{
    system_.appenders().obtain(name);
}

bool LogConfigLoader::appenderProperty(StrSegment name, StrSegment property, StrSegment value)
{
    Str expanded = value.toStr();
    for (const auto &[variable, replacement] : variables_) {
        expanded.replaceAll(Str::fromFormat("${%s}", variable.c_str()), replacement);
    }
    // A property may stand before the line that names its appender.
    return system_.appenders().obtain(name).setProperty(property, expanded);
}

void LogConfigLoader::parseError(const LogConfigLine &at)
{
    errors_.push_back({LogLevel::Warn, Str::fromFormat("%s:%u: Parse error at \"%s\"", at.file.c_str(),
                                                       at.line, at.text.c_str())});
}

void LogConfigLoader::unterminatedComment(const LogConfigLine &at)
{
    errors_.push_back({LogLevel::Error,
                       Str::fromFormat("%s:%u: Unterminated XML comment started", at.file.c_str(), at.line)});
}

/// The root first, as each category begins as a copy of it; then the lines in their order, of all files.
void LogConfigLoader::applyCategories()
{
    if (root_ && !system_.categories().root().apply(root_->value, system_.appenders())) {
        parseError(root_->at);
    }
    for (const CategoryLine &line : categories_) {
        if (!applyCategory(line.value)) {
            parseError(line.at);
        }
    }
}

bool LogConfigLoader::applyCategory(const Str &line)
{
    // The first one: a name has none, while a value might.
    const std::size_t equals = line.find('=');
    if (equals == Str::npos) {
        return false;
    }
    const Str name = line.substr(0, equals).trimmed(CharSet::blanks(), false, true);
    return system_.categories().named(name).apply(line.substr(equals + 1), system_.appenders());
}

void LogConfigLoader::finishAppenders(bool mayUseStderr)
{
    for (auto &[name, appender] : system_.appenders()) {
        finishAppender(appender, mayUseStderr);
    }
    if (!mayUseStderr) {
        finishRoot();
    }
}

void LogConfigLoader::finishAppender(LogAppender &appender, bool mayUseStderr)
{
    if (!appender.hasFile()) {
        finishWithoutFile(appender, mayUseStderr);
        return;
    }
    ignoreBackupsWithoutRolling(appender, appender.name().c_str());
    tryOpen(appender);
}

void LogConfigLoader::finishWithoutFile(LogAppender &appender, bool mayUseStderr)
{
    const char *const name = appender.name().c_str();
    if (mayUseStderr) {
        warn(Str::fromFormat("Appender \"%s\" has no filename, assuming stderr", name));
    } else {
        appender.disable();
    }
    if (appender.maximumBackupIndex() != 0) {
        warnOfIgnored(name, "maxBackupIndex", "a filename");
        appender.clearMaximumBackupIndex();
    }
    if (appender.maximumSize() != 0) {
        warnOfIgnored(name, "maxFileSize", "a filename");
        appender.clearMaximumSize();
    }
}

/// Where standard error is allowed the root appender is taken as it is. Its name is not shown: the report has
/// what the formatter makes of no name.
void LogConfigLoader::finishRoot()
{
    LogAppender &root = system_.appenders().root();
    if (root.hasFile()) {
        ignoreBackupsWithoutRolling(root, "(null)");
        tryOpen(root);
    } else {
        root.disable();
    }
}

void LogConfigLoader::ignoreBackupsWithoutRolling(LogAppender &appender, const char *shownName)
{
    if (appender.maximumBackupIndex() != 0 && appender.maximumSize() == 0) {
        warnOfIgnored(shownName, "maxBackupIndex", "maxFileSize");
        appender.clearMaximumBackupIndex();
    }
}

void LogConfigLoader::tryOpen(LogAppender &appender)
{
    LogReports reports;
    appender.tryOpen(reports);
    const FailedAppenders failed{&appender, nullptr};
    Logger::report(reports, &failed);
}

bool LogConfigLoader::reportErrors()
{
    Logger::report(errors_);
    return errors_.empty();
}

Pathname logCompanionPath(const Pathname &path)
{
    const std::size_t separator = path.view().find_last_of(u"\\/");
    // A point in a folder's name, or in front of a name, begins no extension.
    const std::size_t nameStart = separator == WideStr::npos ? 0 : separator + 1;
    const std::size_t point = path.rfind(u'.');
    Pathname companion = path;
    const bool hasPoint = point != WideStr::npos && point > nameStart;
    companion.insert(hasPoint ? point : path.size(), u"-local");
    return companion;
}

} // namespace velmox
