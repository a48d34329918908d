#pragma once

#include "util/text/str_segment.h"

#include <map>

namespace velmox {

class Regex;

/// Where a `Regex` matched: views into the subject, which must outlive them, as must the `Regex`.
///
/// A group that took no part in the match is a null view.
class RegexMatch
{
public:
    bool matched() const { return matched_; }
    /// Group 0 is the whole match. Throws RegexException on a group that the pattern does not have.
    const StrSegment &group(std::size_t index) const;
    /// Number of groups besides the whole match.
    std::size_t groupCount() const { return groups_.size(); }
    /// Replaces `out` by the named groups that are set.
    void namedGroups(std::map<Str, Str> &out) const;

    /// Offsets of the whole match from the start of the subject, in bytes.
    std::size_t start() const { return static_cast<std::size_t>(whole_.data() - subject_); }
    std::size_t end() const { return start() + whole_.size(); }
    /// The subject up to the match.
    StrSegment prefix() const { return StrSegment(subject_, start()); }

    /// Back to no match; keeps the capacity.
    void clear();

private:
    friend class Regex;

    StrSegmentVector groups_;
    const Regex *regex_ = nullptr;
    const char *subject_ = nullptr;
    bool matched_ = false;
    StrSegment whole_;
};

} // namespace velmox
