#pragma once

#include "util/text/str.h"

#include <cstdint>

namespace velmox {

/// What the command line asks for. Unknown arguments are skipped without a word.
struct CommandLine
{
    /// The process to watch. The last accepted value stands, whichever of the two watch options gave it.
    std::uint32_t parentPid = 0;
    bool runUntilPidDies = false;
    bool dieWhenPidDies = false;
    /// For stanzas that name none; empty when it was not given.
    Str index;
    /// The sense of the filters: true when a match keeps an event.
    bool inclusive = true;
    bool migrateSysmon = true;
    /// To end after the migration; without one it has no effect.
    bool migrateOnly = false;
};

/// Scans a null-ended vector of arguments whose first element is the program's name. False when an option's
/// value is missing or no number, upon which the usage has been logged.
///
/// A value that an option has consumed stays the current token for the tests that follow in the same pass:
/// the value of `-index` may itself be read as an option, and callers rely on that.
bool scanCommandLine(const wchar_t *const *arguments, CommandLine &out);

} // namespace velmox
