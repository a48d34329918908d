#pragma once

#include "util/text/pathname.h"

namespace velmox {

class Logger;

// Files that hold one object each. `name` is the file's name for the log, to which failures go.

/// Reads UTF-8 text, without a byte order mark in front.
bool readTextFile(const Pathname &file, const Str &name, Logger &log, Str &out);
/// Writes text to a temporary file in the same directory, which then takes the place of the file.
bool replaceTextFile(const Pathname &file, const Str &name, Logger &log, const Str &content);
/// Moves a file to the place of another, also from another volume.
bool moveFileInto(const Pathname &from, const Pathname &to, const Str &fromName, const Str &toName,
                  Logger &log);

} // namespace velmox
