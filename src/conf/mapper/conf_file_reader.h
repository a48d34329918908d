#pragma once

#include "conf/tree/conf_path_trie.h"
#include "util/text/pathname.h"

#include <functional>

namespace velmox {

class ConfLineReader;

/// Opens a file of the store, has `read` read its lines, and counts it among what was read. False, with the
/// reason in the last error, when the file cannot be opened or read to its end.
bool readConfLines(const Pathname &file, const std::function<void(ConfLineReader &)> &read);

/// Puts the stanzas and keys of a conf file below the node of their type, with the metadata of the file at
/// each. Of a key that stands twice the last value counts. `rootDirectory` is that of the app to which names
/// of stanzas are relative. False, with the reason in the last error, when the file cannot be opened or read
/// to its end.
bool readConfFile(const Pathname &file, const Pathname &rootDirectory, const ConfPathMetadata &metadata,
                  ConfPathTrie &typeNode);

} // namespace velmox
