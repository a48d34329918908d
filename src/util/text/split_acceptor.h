#pragma once

#include "util/text/str_segment.h"

#include <map>

namespace velmox {

/// Receives the pieces of a split, in order; each is a view into the text being split.
class SplitAcceptor
{
public:
    virtual ~SplitAcceptor() = default;
    virtual void accept(StrSegment piece) = 0;
};

class acceptor_PopulateStrVector : public SplitAcceptor
{
public:
    explicit acceptor_PopulateStrVector(StrVector &out) : out_(out) {}
    void accept(StrSegment piece) override { out_.push_back(piece.toStr()); }

private:
    StrVector &out_;
};

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
