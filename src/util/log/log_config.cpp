#include "util/log/log_config.h"

#include <algorithm>
#include <utility>

namespace velmox {

namespace {

constexpr std::string_view kCommentBegin = "<!--";
constexpr std::string_view kCommentEnd = "-->";
constexpr std::string_view kIgnoredPrefix = "log4cpp.";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kNameEnd = ". \t=";

std::string_view withoutLeadingBlanks(std::string_view text)
{
    return text.substr(std::min(text.find_first_not_of(kBlanks), text.size()));
}

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

bool takeEquals(std::string_view &text)
{
    text = withoutLeadingBlanks(text);
    if (!text.starts_with('=')) {
        return false;
    }
    text = withoutLeadingBlanks(text.substr(1));
    return true;
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
        handler_.appender(name);
        return true;
    }
    rest.remove_prefix(1);
    std::string_view property;
    return takeName(rest, " \t=", property) && takeEquals(rest) &&
           handler_.appenderProperty(name, property, rest);
}

} // namespace velmox
