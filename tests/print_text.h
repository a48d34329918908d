#pragma once

#include "util/text/str.h"
#include "util/text/wide_str.h"

#include <ostream>

// How GoogleTest prints the text types in a failure; part of every test program's precompiled header.
namespace velmox {

inline void PrintTo(const Str &text, std::ostream *out)
{
    *out << '"' << text.view() << '"';
}

inline void PrintTo(const WideStr &text, std::ostream *out)
{
    PrintTo(Str::fromUtf16(text), out);
}

} // namespace velmox
