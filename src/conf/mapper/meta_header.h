#pragma once

#include "conf/tree/conf_path_base.h"

#include <optional>

namespace velmox {

// The name of a stanza in a metadata file is the path of what the stanza tells about: "inputs/monitor%3A" is
// below the app of the file, "" the app itself, and "/anna/search/inputs" anywhere.

/// The path of a stanza in a file of `app`, a path without parts. Nothing, with the reason in the log, when
/// the name has too few parts, or more than any path has.
std::optional<ConfPathBase> parseMetaHeader(const Str &name, const ConfPathBase &app);

/// The shortest name that reads back as the path; nothing when no name does.
std::optional<Str> metaHeader(const ConfPathBase &path, const ConfPathBase &app);

} // namespace velmox
