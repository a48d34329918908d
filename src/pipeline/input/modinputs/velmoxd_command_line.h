#pragma once

#include "util/text/str.h"

#include <optional>

namespace velmox {

/// What velmoxd is asked to do: print what the script of a scheme gets on standard input.
struct VelmoxdCommandLine
{
    bool debug = false;
    Str scheme;
    std::optional<Str> stanza;
};

/// How velmoxd is called.
extern const char kVelmoxdUsage[];

/// `arguments` is what follows the program's name. Nothing when they make no command.
std::optional<VelmoxdCommandLine> readVelmoxdCommandLine(const StrVector &arguments);

} // namespace velmox
