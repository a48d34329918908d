#pragma once

#include "conf/tree/conf_path_metadata.h"

namespace velmox {

class ConfPathTrie;

/// What `app.conf` and the metadata of an app say of the app itself, a plain value. The defaults are those
/// of an app without one: a directory among the apps is an app, and enabled, before anybody has written
/// about it.
struct ApplicationInfo
{
    bool enabled = true;
    bool configured = false;
    /// Whether to enable or disable the app takes a restart.
    bool restartNeeded = false;
    bool allowsDisable = true;
    /// Of the app's own node: what it imports and exports.
    ConfPathMetadata metadata;
    Str id;
    /// Whether the id is the directory's name, as none was set.
    bool idGiven = false;
    bool checkForUpdates = true;
    Str version;

    /// The record of an app from its node in the tree: metadata, and the type "app" below it. The node may be
    /// null.
    static ApplicationInfo from(const Str &name, const ConfPathTrie *appNode);
    /// Whether the two tell the same of an app; where the id comes from does not count.
    bool operator==(const ApplicationInfo &other) const;
};

} // namespace velmox
