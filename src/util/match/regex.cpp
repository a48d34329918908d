#include "util/match/regex.h"

#include "util/log/logger.h"
#include "util/match/regex_program.h"
#include "util/text/ascii.h"

#include <algorithm>
#include <pcre.h>
#include <vector>

namespace velmox {

namespace {

// Subjects are valid UTF-8 by the contract of the class; the check would be another pass over each.
constexpr int kMatchOptions = PCRE_NO_UTF8_CHECK;

// Of PCRE's output vector two thirds hold the offset pairs of the groups, the rest is its work space.
constexpr int kVectorSize = 1024;
constexpr int kPairs = kVectorSize / 3;

// Where no groups are asked for: room for the match and nine of them.
constexpr int kSmallVectorSize = 30;

Logger &regexLog()
{
    static Logger log("Regex");
    return log;
}

StrSegment segmentOf(const char *subject, const int *pair)
{
    if (pair[0] < 0) {
        return StrSegment();
    }
    // A \K inside a look-ahead can put the start behind the end.
    return StrSegment(subject + pair[0], static_cast<std::size_t>(std::max(pair[1] - pair[0], 0)));
}

const char *orEmpty(const char *subject)
{
    return subject != nullptr ? subject : "";
}

/// Partial is what only `partialMatch` asks for.
bool hasMatched(int result)
{
    return result >= 0 || result == PCRE_ERROR_PARTIAL;
}

} // namespace

Regex::Regex(const Str &pattern, bool study, int pcreFlags)
{
    if (!pattern.empty()) {
        compile(pattern, study, pcreFlags);
    }
}

void Regex::clear()
{
    *this = Regex();
}

void Regex::compile(const Str &pattern, bool study, int pcreFlags)
{
    // Copied ahead of the clearing: the pattern may be this object's own.
    Str text = pattern;
    clear();
    pattern_ = std::move(text);

    const char *error = nullptr;
    compiled_ = RegexProgram::compile(pattern_, study, pcreFlags, error);
    if (!compiled_) {
        throw RegexException(Str::concat("Regex: ", error));
    }
    pcre_fullinfo(compiled_->code(), nullptr, PCRE_INFO_CAPTURECOUNT, &captureCount_);
    readAnchored();
    readGroupNames();

    // A pattern that cannot be wrapped, such as an extended one that ends in a comment, goes without.
    const Str wrapped = Str::concat(Str::concat("(?:", pattern_), ")\\z");
    fullCompiled_ = RegexProgram::compile(wrapped, study, pcreFlags | PCRE_ANCHORED, error);
}

void Regex::readAnchored()
{
    unsigned long options = 0;
    const int result = pcre_fullinfo(compiled_->code(), nullptr, PCRE_INFO_OPTIONS, &options);
    if (result != 0) {
        regexLog().error("Failed to lookup PCRE options with return=%d (regex=%s).", result,
                         pattern_.c_str());
        return;
    }
    anchored_ = (options & PCRE_ANCHORED) != 0;
}

void Regex::readGroupNames()
{
    int count = 0;
    int entrySize = 0;
    const char *entry = nullptr;
    pcre_fullinfo(compiled_->code(), nullptr, PCRE_INFO_NAMECOUNT, &count);
    pcre_fullinfo(compiled_->code(), nullptr, PCRE_INFO_NAMEENTRYSIZE, &entrySize);
    pcre_fullinfo(compiled_->code(), nullptr, PCRE_INFO_NAMETABLE, &entry);
    for (; count > 0; --count, entry += entrySize) {
        // An entry: the group's number in two bytes, high byte first, then its name and a NUL.
        const unsigned high = static_cast<unsigned char>(entry[0]);
        const unsigned low = static_cast<unsigned char>(entry[1]);
        groupNames_[entry + 2] = high << 8 | low;
    }
}

// The result of PCRE, which is an error or no match where the whole subject does not match as asked.
int Regex::exec(StrSegment subject, int options, bool fullMatch, std::span<int> offsets) const
{
    const RegexProgram *program = fullMatch && fullCompiled_ ? fullCompiled_.get() : compiled_.get();
    if (program == nullptr) {
        return PCRE_ERROR_NOMATCH;
    }
    const int result = program->exec(orEmpty(subject.data()), subject.size(), kMatchOptions | options,
                                     offsets.data(), static_cast<int>(offsets.size()));
    // Asked also of the wrapped pattern's match: \K can move its start.
    const bool spans =
        hasMatched(result) && static_cast<std::size_t>(offsets[1] - offsets[0]) == subject.size();
    return fullMatch && !spans ? PCRE_ERROR_NOMATCH : result;
}

bool Regex::match(StrSegment &subject, RegexMatch *out, bool consume, bool fullMatch) const
{
    if (out != nullptr) {
        out->clear();
    }
    // So that a loop that takes match after match off a subject comes to an end, also for a pattern that
    // matches nothing at all.
    if (consume && subject.empty() && !fullMatch) {
        return false;
    }
    int offsets[kVectorSize];
    const int result = exec(subject, 0, fullMatch, offsets);
    if (!hasMatched(result)) {
        return false;
    }
    const char *start = orEmpty(subject.data());
    if (consume) {
        subject.removePrefix(static_cast<std::size_t>(offsets[1]));
    }
    if (out != nullptr) {
        fill(*out, start, offsets, result < 0 ? 1 : kPairs);
    }
    return true;
}

bool Regex::match(const Str &subject, RegexMatch *out, bool consume, bool fullMatch) const
{
    StrSegment whole(subject);
    return match(whole, out, consume, fullMatch);
}

bool Regex::partialMatch(const Str &subject, RegexMatch *out) const
{
    if (out != nullptr) {
        out->clear();
    }
    if (!compiled_) {
        return false;
    }
    int offsets[kVectorSize];
    const int result =
        compiled_->execWithDefaultNewline(subject.data(), subject.size(), PCRE_PARTIAL, offsets, kVectorSize);
    if (!hasMatched(result)) {
        return false;
    }
    if (out != nullptr) {
        fill(*out, subject.data(), offsets, result < 0 ? 1 : kPairs);
    }
    return true;
}

int Regex::findAt(const char *subject, unsigned length, bool anchoredHere, bool fullMatch) const
{
    int small[kSmallVectorSize];
    // PCRE makes room for groups that a pattern refers back to, but not for those whose shared name a
    // condition asks for: without room they count as not set.
    std::vector<int> large(captureCount_ < kSmallVectorSize / 3 ? 0 : kVectorSize);
    const std::span<int> offsets = large.empty() ? std::span<int>(small) : std::span<int>(large);
    const int options = anchoredHere ? PCRE_ANCHORED : 0;
    return hasMatched(exec(StrSegment(subject, length), options, fullMatch, offsets)) ? offsets[0] : -1;
}

// `filledPairs` counts the pairs that PCRE has written; a partial match has only that of the whole.
void Regex::fill(RegexMatch &out, const char *subject, const int *offsets, int filledPairs) const
{
    out.regex_ = this;
    out.subject_ = subject;
    out.matched_ = true;
    out.whole_ = segmentOf(subject, offsets);
    out.groups_.resize(static_cast<std::size_t>(captureCount_));
    const int groups = std::min(captureCount_, filledPairs - 1);
    for (int i = 0; i < groups; ++i) {
        out.groups_[static_cast<std::size_t>(i)] = segmentOf(subject, offsets + 2 * (i + 1));
    }
}

void Regex::escape(const Str &in, Str &out)
{
    const auto isPlain = [](char c) { return isAsciiAlphanumeric(c) || c == '_' || (c & 0x80) != 0; };
    Str escaped;
    escaped.reserve(2 * in.size());
    for (const char c : in) {
        if (!isPlain(c)) {
            escaped.push_back('\\');
        }
        // To PCRE, a C string, a pattern would end at a NUL; `\0` stands for it.
        escaped.push_back(c != '\0' ? c : '0');
    }
    out = std::move(escaped);
}

} // namespace velmox
