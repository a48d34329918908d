#pragma once

#include "util/text/pathname.h"
#include "util/text/str.h"

namespace velmox {

/// What is told of a script before it is found: its file name, and its arguments.
struct ScriptName
{
    Str file;
    Str arguments;

    /// The arguments stand behind the first blank.
    static ScriptName fromText(const Str &text);
};

/// A script with the arguments that it gets on every start.
struct ScriptCommand
{
    Pathname file;
    Str arguments;

    bool empty() const { return file.empty(); }
    /// The path, and the arguments behind a blank.
    Str text() const;
    /// How it is started: a path with blanks in it is quoted, and a script of the extension `py` is an
    /// argument of `python`. More arguments go directly behind.
    Str commandLine() const;
};

} // namespace velmox
