#pragma once

#include "util/text/str.h"

namespace velmox {

/// The texts of a container, with a separator between them; empty ones in front count for nothing.
template <class Texts>
Str joined(const Texts &texts, std::string_view separator)
{
    Str all;
    for (const Str &text : texts) {
        all << (all.empty() ? std::string_view() : separator) << text;
    }
    return all;
}

} // namespace velmox
