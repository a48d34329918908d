#pragma once

#include "util/text/str.h"

namespace velmox {

/// The four numbers of a program's version, of which the last is that of the build, 0 for one that is not
/// packed.
struct ProgramVersion
{
    /// That of the running program, from its version resource; zeros if it has none.
    static ProgramVersion ofThisProgram();

    /// Joined by points, as packages and the properties of files show it.
    Str text() const;

    unsigned parts[4] = {};

    unsigned build() const { return parts[3]; }
};

} // namespace velmox
