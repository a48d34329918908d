#pragma once

#include "util/text/str.h"

#include <cstdint>
#include <limits>
#include <map>
#include <type_traits>

namespace velmox {

class SplitAcceptor;

/// A view of bytes: start and length. It owns nothing, and a null start with length 0 means no text.
class StrSegment
{
public:
    constexpr StrSegment() = default;
    constexpr StrSegment(const char *start, std::size_t length) : start_(start), length_(length) {}
    constexpr StrSegment(std::string_view text) : start_(text.data()), length_(text.size()) {}
    StrSegment(const char *cstr) : StrSegment(std::string_view(cstr)) {}
    StrSegment(const Str &text) : start_(text.data()), length_(text.size()) {}

    constexpr const char *data() const { return start_; }
    constexpr std::size_t size() const { return length_; }
    constexpr bool empty() const { return length_ == 0; }
    /// No text, as against empty text.
    constexpr bool isNull() const { return start_ == nullptr; }
    constexpr const char *begin() const { return start_; }
    constexpr const char *end() const { return start_ + length_; }
    constexpr char operator[](std::size_t at) const { return start_[at]; }
    constexpr std::string_view view() const { return {start_, length_}; }
    Str toStr() const { return Str(view()); }

    /// Takes `count` bytes, at most all, off the front.
    constexpr void removePrefix(std::size_t count)
    {
        count = count < length_ ? count : length_;
        start_ += count;
        length_ -= count;
    }
    /// Throws std::out_of_range for a position past the end.
    constexpr StrSegment substr(std::size_t position, std::size_t count = Str::npos) const
    {
        return StrSegment(view().substr(position, count));
    }
    StrSegment trimmed(const CharSet &set = CharSet::blanks(), bool left = true, bool right = true) const
    {
        return StrSegment(trimmedView(view(), set, left, right));
    }

    friend constexpr bool operator==(const StrSegment &a, const StrSegment &b)
    {
        return a.view() == b.view();
    }

    /// Delivers the pieces between delimiters until `maxSplits` delimiters are used up, then all that remains
    /// as the last piece. Empty text delivers nothing; an empty delimiter delivers single bytes.
    void split(SplitAcceptor &acceptor, const StrSegment &delimiter,
               unsigned maxSplits = Str::kNoLimit) const;
    void split(SplitAcceptor &acceptor, char delimiter, unsigned maxSplits = Str::kNoLimit) const;
    void splitInto(StrVector &out, const char *delimiter, unsigned maxSplits = Str::kNoLimit) const;

    /// The C run-time library's conversion of the whole text; `out` is one of the two limits when out of
    /// range.
    bool toInt(int &out, int base = 10) const;

    /// Strict decimal parser for integers of 8 to 64 bits: blanks around the digits and, for the signed form,
    /// a leading minus. False, with `out` untouched, when anything else stands there or the value does not
    /// fit.
    template <class Signed>
    bool parseSigned(Signed &out) const
    {
        static_assert(std::is_signed_v<Signed>);
        std::int64_t value = 0;
        const bool parsed = parseSignedUpTo(std::numeric_limits<Signed>::max(), value);
        out = parsed ? static_cast<Signed>(value) : out;
        return parsed;
    }
    template <class Unsigned>
    bool parseUnsigned(Unsigned &out) const
    {
        static_assert(std::is_unsigned_v<Unsigned>);
        std::uint64_t value = 0;
        const bool parsed = parseUpTo(std::numeric_limits<Unsigned>::max(), value);
        out = parsed ? static_cast<Unsigned>(value) : out;
        return parsed;
    }

private:
    bool parseUpTo(std::uint64_t limit, std::uint64_t &out) const;
    /// From -limit - 1 to limit.
    bool parseSignedUpTo(std::int64_t limit, std::int64_t &out) const;

    const char *start_ = nullptr;
    std::size_t length_ = 0;
};

using StrSegmentVector = std::vector<StrSegment>;

/// Receives the pieces of a split, in order; each is a view into the text being split.
class SplitAcceptor
{
public:
    virtual ~SplitAcceptor() = default;
    virtual void accept(StrSegment piece) = 0;
};

/// Appends copies of the pieces, which may outlive the text.
class acceptor_PopulateStrVector : public SplitAcceptor
{
public:
    explicit acceptor_PopulateStrVector(StrVector &out) : out_(out) {}
    void accept(StrSegment piece) override { out_.push_back(piece.toStr()); }

private:
    StrVector &out_;
};

/// Appends the views themselves, which live as long as the text that was split.
class acceptor_PopulateStrSegmentVector : public SplitAcceptor
{
public:
    explicit acceptor_PopulateStrSegmentVector(StrSegmentVector &out) : out_(out) {}
    void accept(StrSegment piece) override { out_.push_back(piece); }

private:
    StrSegmentVector &out_;
};

/// Splits where a backslash escapes: `\n` and `\r` are line feed and carriage return, any other escaped
/// character stands for itself. Text behind the last separator is not delivered. Returns the number of
/// pieces.
std::size_t splitEscaped(const Str &text, StrVector &out, char separator);

/// The same over key, `eq`, value, `eq`, key and so on. True when the text ended cleanly; a value that is not
/// closed empties `out` and gives false.
bool splitEscapedPairs(const Str &text, std::map<Str, Str> &out, char eq);

} // namespace velmox
