#pragma once

#include "conf/conf_path_trie.h"
#include "util/pathname.h"

namespace velmox {

class ConfLineReader;

/// Puts the stanzas and keys of conf text below the node of their type, with the metadata of the file at
/// each. Of a key that stands twice the last value counts. `rootDirectory` is that of the app to which names
/// of stanzas are relative.
void readConfText(ConfLineReader &reader, const Pathname &rootDirectory, const ConfPathMetadata &metadata,
                  ConfPathTrie &typeNode);

/// Reads a file so. False, with the reason in the last error and nothing changed, when it cannot be opened.
bool readConfFile(const Pathname &file, const Pathname &rootDirectory, const ConfPathMetadata &metadata,
                  ConfPathTrie &typeNode);

} // namespace velmox
