#pragma once

#include "conf/tree/conf_path_base.h"

namespace velmox {

class IniFile;

// Changes of the image of a metadata file. `app` is the app of the file, a path without parts.

enum class MetaEdit
{
    Unchanged, ///< the image says so already
    Changed,
    Refused, ///< no stanza can be named for the path; logged
};

/// Sets a key in the stanza of a path. An empty value of the node's own is none: its key goes.
MetaEdit setMetaSetting(IniFile &image, const ConfPathBase &app, const ConfPathBase &path, const Str &key,
                        const Str &value);
/// Removes the stanzas of a path and of all below it.
MetaEdit removeMetaStanzas(IniFile &image, const ConfPathBase &app, const ConfPathBase &path);

} // namespace velmox
