#pragma once

#include "conf/tree/conf_path_trie.h"
#include "util/log/logger.h"

#include <optional>
#include <utility>
#include <vector>

namespace velmox {

class ConfLineReader;

// The text of metadata files: stanzas named after paths, with settings such as `access`, `export` and
// `owner`. Reading is forgiving, since people write these files by hand: what is wrong is logged and passed
// over.

/// `ConfObjectManagerDB`, the logger of all who read and write metadata files.
extern Logger metaLog;

// The name of a stanza in a metadata file is the path of what the stanza tells about: "inputs/monitor%3A" is
// below the app of the file, "" the app itself, and "/anna/search/inputs" anywhere.

/// The path of a stanza in a file of `app`, a path without parts. Nothing, with the reason in the log, when
/// the name has too few parts, or more than any path has.
std::optional<ConfPathBase> parseMetaHeader(const Str &name, const ConfPathBase &app);

/// The shortest name that reads back as the path; nothing when no name does.
std::optional<Str> metaHeader(const ConfPathBase &path, const ConfPathBase &app);

/// Puts what the stanzas of metadata text say onto the nodes of their paths. `app` is the app of the file, a
/// path without parts. Of a setting that stands twice the last value counts. Faults are logged and passed
/// over.
void readMetaText(ConfLineReader &reader, const ConfPathBase &app, ConfPathTrie &out);

/// The key under which a stanza holds a value of its own for its node.
inline constexpr char kMetaDataKey[] = "data";

/// What is set in the metadata, as keys and values of a stanza. Left out is what the place on disk tells, and
/// the version, which nobody reads.
std::vector<std::pair<const char *, Str>> metaSettings(const ConfPathMetadata &metadata);

} // namespace velmox
