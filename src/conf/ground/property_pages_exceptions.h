#pragma once

#include "util/text/base_exception.h"

namespace velmox {

class PropertyPagesException : public BaseException
{
public:
    using BaseException::BaseException;
};

/// The context lacks what the operation needs. `pages` tells of type, context and acting user.
class PropertyPagesContextException : public PropertyPagesException
{
public:
    static constexpr char kNoUser[] = "Missing user context";
    static constexpr char kNoApp[] = "Missing app context";
    static constexpr char kUserWithoutApp[] =
        "Cannot read configuration if user context is set but app context is not";

    PropertyPagesContextException(const Str &pages, const char *lack)
        : PropertyPagesException(Str::fromFormat("%s: %s", pages.c_str(), lack))
    {
    }
};

class PropertyPagesDisabledAppException : public PropertyPagesException
{
public:
    explicit PropertyPagesDisabledAppException(const Str &app)
        : PropertyPagesException(Str::concat("Application is disabled: ", app))
    {
    }
};

class PropertyPagesImpersonationException : public PropertyPagesException
{
public:
    PropertyPagesImpersonationException(const Str &identity, const Str &user)
        : PropertyPagesException(
              Str::fromFormat("User '%s' could not act as: %s", identity.c_str(), user.c_str()))
    {
    }
};

/// Moving a stanza between sharing levels failed.
class PropertyPagesSharingException : public PropertyPagesException
{
public:
    PropertyPagesSharingException(const Str &pages, const Str &name, const Str &reason)
        : PropertyPagesException(Str::fromFormat("%s: Error while sharing or unsharing '%s': %s",
                                                 pages.c_str(), name.c_str(), reason.c_str()))
    {
    }
};

class PropertyPagesNoEntityToShareException : public PropertyPagesSharingException
{
public:
    PropertyPagesNoEntityToShareException(const Str &pages, const Str &name,
                                          const Str &reason = "No eligible entity")
        : PropertyPagesSharingException(pages, name, reason)
    {
    }
};

/// The level that the stanza would go to has the name already.
class PropertyPagesSharingCollisionException : public PropertyPagesSharingException
{
public:
    using PropertyPagesSharingException::PropertyPagesSharingException;
};

} // namespace velmox
