#include "util/text/char_set.h"

namespace velmox {

namespace {

constexpr CharSet kBlanks(" \t");
constexpr CharSet kHexDigits("0123456789abcdefABCDEF");
constexpr CharSet kUrlTriggers("%+");
constexpr CharSet kUrlUnreserved("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~");
constexpr CharSet kLineEnds("\n\r");

} // namespace

const CharSet &CharSet::blanks()
{
    return kBlanks;
}

const CharSet &CharSet::hexDigits()
{
    return kHexDigits;
}

const CharSet &CharSet::urlTriggers()
{
    return kUrlTriggers;
}

const CharSet &CharSet::urlUnreserved()
{
    return kUrlUnreserved;
}

const CharSet &CharSet::lineEnds()
{
    return kLineEnds;
}

} // namespace velmox
