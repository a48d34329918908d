#pragma once

#include "util/text/str.h"

#include <map>

namespace velmox {

/// What a script says of itself when it is asked with `--scheme`: texts by the names of their elements.
struct Introspection
{
    using Texts = std::map<Str, Str>;

    /// Whether there was a `scheme` element at all.
    bool found = false;
    Texts scheme;
    /// By the name of the argument.
    std::map<Str, Texts> args;
};

} // namespace velmox
