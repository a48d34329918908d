#include "util/text/str_segment.h"

#include "util/text/split_acceptor.h"

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

} // namespace

StrSegment StrSegment::trimmed(const CharSet &set, bool left, bool right) const
{
    const char *first = begin();
    const char *last = end();
    while (left && first != last && set.contains(*first)) {
        ++first;
    }
    while (right && first != last && set.contains(last[-1])) {
        --last;
    }
    return StrSegment(first, static_cast<std::size_t>(last - first));
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

} // namespace velmox
