#pragma once

#include "conf/file/ini_file.h"
#include "conf/tree/conf_path_trie.h"
#include "util/log/logger.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace velmox {

class ConfLineReader;

// The text of metadata files: stanzas named after paths, with settings such as `access`, `export` and
// `owner`. Reading is forgiving, since people write these files by hand: what is wrong is logged and passed
// over, so that one bad line takes nobody's permissions away.

/// `ConfObjectManagerDB`, the logger of all who read and write metadata files.
extern Logger metaLog;

// The name of a stanza in a metadata file is the path of what the stanza tells about: "inputs/monitor%3A" is
// below the app of the file, "" the app itself, and "/anna/search/inputs" anywhere. Parts are URL-encoded,
// as names of stanzas have slashes of their own.

/// The path of a stanza in a file of `app`, a path without parts. Nothing, with the reason in the log, when
/// the name has too few parts, or more than any path has.
std::optional<ConfPathBase> parseMetaHeader(const Str &name, const ConfPathBase &app);

/// The shortest name that reads back as the path; nothing when no name does, as for the app level of another
/// app, which an absolute name has too few parts for.
std::optional<Str> metaHeader(const ConfPathBase &path, const ConfPathBase &app);

/// Puts what the stanzas of metadata text say onto the nodes of their paths. `app` is the app of the file, a
/// path without parts. Of a setting that stands twice the last value counts. Faults are logged and passed
/// over.
void readMetaText(ConfLineReader &reader, const ConfPathBase &app, ConfPathTrie &out);

/// The key under which a stanza holds a value of its own for its node.
inline constexpr char kMetaDataKey[] = "data";

/// What is set in the metadata, as keys and values of a stanza. Left out is `removable`, which the place on
/// disk tells, and the version, which nobody reads.
std::vector<std::pair<const char *, Str>> metaSettings(const ConfPathMetadata &metadata);

enum class MetaEdit
{
    Unchanged, ///< the image says so already
    Changed,
    Refused, ///< no stanza can be named for the path; logged
};

/// The image of a metadata file, edited by the paths of which it tells. Comments, order and stanzas that
/// nobody touches stay as they are, even where the file spells a path in another way than this program would.
class MetaImage
{
public:
    /// `app` is the app of the file, a path without parts. Reads all names of stanzas once, so that an edit
    /// needs no search through the file.
    MetaImage(IniFile image, const ConfPathBase &app);

    bool flush() { return image_.flush(); }

    /// Sets a key in the stanza of a path. An empty value of the node's own is none: its key goes.
    MetaEdit set(const ConfPathBase &path, const Str &key, const Str &value);
    /// Removes the stanzas of a path and of all below it.
    MetaEdit remove(const ConfPathBase &path);

private:
    IniFile image_;
    const ConfPathBase app_;
    /// The names of the stanzas by the segments of their paths. Several may spell the same path.
    std::map<StrVector, StrVector> names_;
};

} // namespace velmox
