#pragma once

#include "conf/tree/conf_path_trie.h"
#include "util/text/pathname.h"

#include <utility>
#include <vector>

namespace velmox {

class ConfLineReader;

/// Puts what the stanzas of metadata text say onto the nodes of their paths. `app` is the app of the file, a
/// path without parts. Of a setting that stands twice the last value counts. Faults are logged and passed
/// over.
void readMetaText(ConfLineReader &reader, const ConfPathBase &app, ConfPathTrie &out);

/// Reads a file so. False, with the reason in the last error, when it cannot be opened or read to its end.
bool readMetaFile(const Pathname &file, const ConfPathBase &app, ConfPathTrie &out);

/// The key under which a stanza holds a value of its own for its node.
inline constexpr char kMetaDataKey[] = "data";

/// What is set in the metadata, as keys and values of a stanza. Left out is what the place on disk tells, and
/// the version, which nobody reads.
std::vector<std::pair<const char *, Str>> metaSettings(const ConfPathMetadata &metadata);

} // namespace velmox
