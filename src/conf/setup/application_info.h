#pragma once

#include "conf/tree/conf_path_metadata.h"
#include "util/base_exception.h"

namespace velmox {

class ConfPathTrie;

/// What `app.conf` says of an app. The defaults are those of an app without one.
struct ApplicationInfo
{
    bool enabled = true;
    bool configured = false;
    bool restartNeeded = false;
    bool allowsDisable = true;
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

enum class ApplicationChange
{
    None = 0,
    Created = 1,
    Modified = 2,
};

class ApplicationManagerException : public BaseException
{
public:
    using BaseException::BaseException;
};

class ApplicationDoesNotExistException : public ApplicationManagerException
{
public:
    explicit ApplicationDoesNotExistException(const Str &name)
        : ApplicationManagerException(Str::concat("Cannot import non-existent application: ", name))
    {
    }
};

class ApplicationInfoUpdateException : public ApplicationManagerException
{
public:
    explicit ApplicationInfoUpdateException(const Str &name)
        : ApplicationManagerException(Str::concat("Cannot update application info: ", name))
    {
    }
};

class ApplicationRemovalException : public ApplicationManagerException
{
public:
    /// `error` is the system's code.
    ApplicationRemovalException(unsigned error, const Str &directory)
        : ApplicationManagerException(
              Str::fromErrorFormat(error, "Cannot remove application directory: %s: %m", directory.c_str()))
    {
    }
};

class ApplicationHasNoUpdateException : public ApplicationManagerException
{
public:
    explicit ApplicationHasNoUpdateException(const Str &id)
        : ApplicationManagerException(Str::concat("No update available for appid: ", id))
    {
    }
};

class ApplicationDoesNotAllowDisableException : public ApplicationManagerException
{
public:
    explicit ApplicationDoesNotAllowDisableException(const Str &name)
        : ApplicationManagerException(Str::concat("Application cannot be disabled: ", name))
    {
    }
};

} // namespace velmox
