#pragma once

#include "util/text/base_exception.h"

namespace velmox {

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
