#pragma once

#include "util/text/str.h"

#include <cstdint>

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
    constexpr StrSegment substr(std::size_t position, std::size_t count = Str::npos) const
    {
        return StrSegment(view().substr(position, count));
    }
    StrSegment trimmed(const CharSet &set = CharSet::blanks(), bool left = true, bool right = true) const;

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

    /// Strict decimal parser: blanks around the digits and, for the signed forms, a leading minus. False,
    /// with `out` untouched, when anything else stands there or the value does not fit.
    bool parseSigned(std::int8_t &out) const;
    bool parseSigned(std::int16_t &out) const;
    bool parseSigned(std::int32_t &out) const;
    bool parseSigned(std::int64_t &out) const;
    bool parseUnsigned(std::uint8_t &out) const;
    bool parseUnsigned(std::uint16_t &out) const;
    bool parseUnsigned(std::uint32_t &out) const;
    bool parseUnsigned(std::uint64_t &out) const;

private:
    const char *start_ = nullptr;
    std::size_t length_ = 0;
};

using StrSegmentVector = std::vector<StrSegment>;

} // namespace velmox
