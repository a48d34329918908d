#pragma once

#include "util/match/regex_match.h"
#include "util/text/base_exception.h"
#include "util/text/str_segment.h"

#include <map>
#include <memory>
#include <span>

namespace velmox {

// The room of matching: regular expressions over UTF-8 (this header; regex_program.h makes them quick), what
// a text must hold to match one (required_literals.h), which of many may match a text (literal_index.h), and
// filters with lists that put themselves in order (smart_filter_list.h).
class RegexProgram;

/// A pattern that does not compile, with PCRE's reason, or a group that a match does not have.
class RegexException : public BaseException
{
public:
    using BaseException::BaseException;
};

/// One PCRE pattern over UTF-8 text, compiled twice: as given, and wrapped so that it matches whole subjects
/// only.
///
/// Subjects must be valid UTF-8; nothing checks them. Matching neither throws nor logs: an error of PCRE,
/// such as its match limit, or the end of its stack, reads as no match. Any number of threads may match at
/// once, none while `compile` or `clear` runs. The compile options aren't kept, so there is no copying:
/// compile anew from `pattern()`.
class Regex
{
public:
    /// Matches nothing.
    Regex() = default;
    /// Compiles at once, but leaves an empty pattern uncompiled: the object then matches nothing.
    Regex(const Str &pattern, bool study, int pcreFlags);
    Regex(Regex &&) noexcept = default;
    Regex &operator=(Regex &&) noexcept = default;

    /// Replaces what stands. An empty pattern is compiled like any other and matches anything. Throws
    /// RegexException, with the old pattern gone.
    void compile(const Str &pattern, bool study, int pcreFlags);
    void clear();

    /// Searches the subject; with `fullMatch` the match must span it. `consume` advances the subject past the
    /// match, and then an empty subject never matches, unless `fullMatch` is set as well. `out` may be null,
    /// which is quicker; it is cleared when nothing matches.
    bool match(StrSegment &subject, RegexMatch *out = nullptr, bool consume = false,
               bool fullMatch = false) const;
    bool match(const Str &subject, RegexMatch *out = nullptr, bool consume = false,
               bool fullMatch = false) const;

    /// Also true when the subject ends within what could become a match; `out` then has no groups set.
    bool partialMatch(const Str &subject, RegexMatch *out = nullptr) const;

    /// The two questions of the filters: whether something in the subject matches, and whether all of it
    /// does.
    bool finds(const Str &subject) const { return holdsMatch(subject, false); }
    bool matchesAll(const Str &subject) const { return holdsMatch(subject, true); }

    /// Offset of a match, in bytes, or -1. With `anchoredHere` only a match at the start counts.
    int findAt(const char *subject, unsigned length, bool anchoredHere, bool fullMatch) const;

    /// Makes `out` a pattern that matches just the text `in`.
    static void escape(const Str &in, Str &out);

    /// Whether the pattern can match only at the start of a subject.
    bool isAnchored() const { return anchored_; }
    const Str &pattern() const { return pattern_; }
    /// The number of groups besides the whole match.
    int captureCount() const { return captureCount_; }
    /// The numbers of the groups that have names.
    const std::map<Str, unsigned> &groupNames() const { return groupNames_; }

private:
    bool holdsMatch(const Str &subject, bool fullMatch) const
    {
        return findAt(subject.data(), static_cast<unsigned>(subject.size()), false, fullMatch) >= 0;
    }
    void readAnchored();
    void readGroupNames();
    int exec(StrSegment subject, int options, bool fullMatch, std::span<int> offsets) const;
    void fill(RegexMatch &out, const char *subject, const int *offsets, int filledPairs) const;

    std::shared_ptr<const RegexProgram> compiled_;
    int captureCount_ = 0;
    std::map<Str, unsigned> groupNames_;
    bool anchored_ = false;
    Str pattern_;
    std::shared_ptr<const RegexProgram> fullCompiled_;
};

} // namespace velmox
