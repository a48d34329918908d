#include "util/log/log_loader.h"

namespace velmox {

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
    ignoreLonelyBackups(appender, appender.name().c_str());
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
        warn(Str::fromFormat("Appender \"%s\" has maxBackupIndex set without specifying a filename, ignoring",
                             name));
        appender.clearMaximumBackupIndex();
    }
    if (appender.maximumSize() != 0) {
        warn(Str::fromFormat("Appender \"%s\" has maxFileSize set without specifying a filename, ignoring",
                             name));
        appender.clearMaximumSize();
    }
}

/// Where standard error is allowed the root appender is taken as it is. Its name is not shown: the report has
/// what the formatter makes of no name.
void LogConfigLoader::finishRoot()
{
    LogAppender &root = system_.appenders().root();
    if (root.hasFile()) {
        ignoreLonelyBackups(root, "(null)");
        tryOpen(root);
    } else {
        root.disable();
    }
}

void LogConfigLoader::ignoreLonelyBackups(LogAppender &appender, const char *shownName)
{
    if (appender.maximumBackupIndex() != 0 && appender.maximumSize() == 0) {
        warn(Str::fromFormat(
            "Appender \"%s\" has maxBackupIndex set without specifying maxFileSize, ignoring", shownName));
        appender.clearMaximumBackupIndex();
    }
}

void LogConfigLoader::tryOpen(LogAppender &appender)
{
    LogReports reports;
    appender.tryOpen(reports);
    const LogCulprits culprit{&appender, nullptr};
    system_.report(reports, &culprit);
}

void LogConfigLoader::warn(const Str &text)
{
    system_.report({LogLevel::Warn, text});
}

bool LogConfigLoader::reportErrors()
{
    system_.report(errors_);
    return errors_.empty();
}

Pathname logCompanionPath(const Pathname &path)
{
    const std::size_t separator = path.view().find_last_of(u"\\/");
    const std::size_t nameStart = separator == WideStr::npos ? 0 : separator + 1;
    const std::size_t point = path.rfind(u'.');
    Pathname companion = path;
    const bool hasPoint = point != WideStr::npos && point > nameStart;
    companion.insert(hasPoint ? point : path.size(), u"-local");
    return companion;
}

} // namespace velmox
