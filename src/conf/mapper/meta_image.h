#pragma once

#include "conf/file/ini_file.h"
#include "conf/tree/conf_path_base.h"

#include <map>

namespace velmox {

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
    /// `app` is the app of the file, a path without parts.
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
