#pragma once

#include "conf/root/bundles_setup.h"
#include "conf/tree/conf_path_trie.h"

#include <functional>

namespace velmox {

class ConfLineReader;
class Logger;

// How mappers read, create and replace files. Failures are told by the last error or, where a `Logger` is
// given, in the log.

/// Opens a file of the store, has `read` read its lines, and counts it among what was read. False, with the
/// reason in the last error, when the file cannot be opened or read to its end.
bool readConfLines(const Pathname &file, const std::function<void(ConfLineReader &)> &read);

/// Puts the stanzas and keys of a conf file below the node of their type, with the metadata of the file at
/// each. Of a key that stands twice the last value counts. `rootDirectory` is that of the app to which names
/// of stanzas are relative. False, with the reason in the last error, when the file cannot be opened or read
/// to its end.
bool readConfFile(const Pathname &file, const Pathname &rootDirectory, const ConfPathMetadata &metadata,
                  ConfPathTrie &typeNode);

/// Makes sure that a file exists, with the directories above it. A `.conf` file that is empty gets a UTF-8
/// byte order mark and a line end, so that other editors read it as UTF-8 as well. What goes wrong is
/// logged, with the setup's texts of paths. False, with the reason in the last error, when there is no such
/// file that can be written.
bool createConfFile(const BundlesSetup &setup, const Pathname &file, Logger &log);

// Files that hold one object each. `name` is the file's name for the log, to which failures go.

/// Reads UTF-8 text, without a byte order mark in front.
bool readTextFile(const Pathname &file, const Str &name, Logger &log, Str &out);
/// Writes text to a temporary file in the same directory, which then takes the place of the file: who reads
/// meanwhile sees the old file or the new one, never a part.
bool replaceTextFile(const Pathname &file, const Str &name, Logger &log, const Str &content);
/// Moves a file to the place of another, also from another volume, from which it is copied. A source that
/// cannot be removed then is no failure.
bool moveFileInto(const Pathname &from, const Pathname &to, const Str &fromName, const Str &toName,
                  Logger &log);

} // namespace velmox
