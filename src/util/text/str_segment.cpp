#include "util/text/str_segment.h"

namespace velmox {

namespace {

void splitIntoBytes(SplitAcceptor &acceptor, StrSegment rest, unsigned maxSplits)
{
    for (; maxSplits != 0 && !rest.empty(); --maxSplits) {
        acceptor.accept(rest.substr(0, 1));
        rest.removePrefix(1);
    }
    if (!rest.empty()) {
        acceptor.accept(rest);
    }
}

char unescaped(char escaped)
{
    switch (escaped) {
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    default:
        return escaped;
    }
}

/// Hands `onPiece` each piece that a separator closes, its escapes resolved; returns what stands behind the
/// last one.
template <class OnPiece>
Str forEachEscapedPiece(const Str &text, char separator, OnPiece onPiece)
{
    Str piece;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\') {
            // A backslash at the very end escapes nothing, and is dropped.
            if (++at == text.size()) {
                break;
            }
            piece += unescaped(text[at]);
        } else if (text[at] == separator) {
            onPiece(piece);
            piece.clear();
        } else {
            piece += text[at];
        }
    }
    return piece;
}

} // namespace

Str &Str::operator<<(const StrSegment &text)
{
    return append(text.view());
}

void StrSegment::split(SplitAcceptor &acceptor, const StrSegment &delimiter, unsigned maxSplits) const
{
    if (empty()) {
        return;
    }
    if (delimiter.empty()) {
        splitIntoBytes(acceptor, *this, maxSplits);
        return;
    }
    StrSegment rest = *this;
    for (; maxSplits != 0; --maxSplits) {
        const std::size_t at = rest.view().find(delimiter.view());
        if (at == std::string_view::npos) {
            break;
        }
        acceptor.accept(rest.substr(0, at));
        rest.removePrefix(at + delimiter.size());
    }
    // Also when nothing is left: behind a delimiter there always is a piece.
    acceptor.accept(rest);
}

void StrSegment::split(SplitAcceptor &acceptor, char delimiter, unsigned maxSplits) const
{
    split(acceptor, StrSegment(&delimiter, 1), maxSplits);
}

void StrSegment::splitInto(StrVector &out, const char *delimiter, unsigned maxSplits) const
{
    acceptor_PopulateStrVector acceptor(out);
    split(acceptor, StrSegment(delimiter), maxSplits);
}

std::size_t splitEscaped(const Str &text, StrVector &out, char separator)
{
    std::size_t count = 0;
    forEachEscapedPiece(text, separator, [&](const Str &piece) {
        out.push_back(piece);
        ++count;
    });
    return count;
}

bool splitEscapedPairs(const Str &text, std::map<Str, Str> &out, char eq)
{
    Str key;
    bool inValue = false;
    forEachEscapedPiece(text, eq, [&](const Str &piece) {
        if (inValue) {
            out[key] = piece;
        } else {
            key = piece;
        }
        inValue = !inValue;
    });
    if (inValue) {
        out.clear();
    }
    return !inValue;
}

} // namespace velmox
