#include "util/text/split_acceptor.h"

namespace velmox {

namespace {

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
