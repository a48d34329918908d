#pragma once

// What the store throws. All texts are for the log; callers tell failures apart by their classes.

#include "util/text/base_exception.h"

namespace velmox {

/// What addresses and their reads and writes throw.
struct ConfPathException : BaseException
{
    using BaseException::BaseException;
};

/// Nothing stands at the path.
struct ConfPathDoesNotExistException : ConfPathException
{
    using ConfPathException::ConfPathException;
};

/// Something stands there, but it has no value: what lies above settings, such as an app.
struct ConfPathHasNoDataException : ConfPathException
{
    using ConfPathException::ConfPathException;
};

/// Nothing was ever said about it in a metadata file.
struct ConfPathHasNoMetadataException : ConfPathException
{
    using ConfPathException::ConfPathException;
};

/// The acting identity lacks a right.
struct ConfPathPermissionDeniedException : ConfPathException
{
    using ConfPathException::ConfPathException;
};

/// A part that becomes a file's or a directory's name would lead out of its directory.
struct ConfPathDirectoryTraversalException : ConfPathException
{
    using ConfPathException::ConfPathException;
};

/// Something was not written; what was before it stays written.
struct ConfPathWriteException : ConfPathException
{
    using ConfPathException::ConfPathException;
};

/// The value could not be put into the image of its file.
struct ConfPathWriteDataException : ConfPathWriteException
{
    using ConfPathWriteException::ConfPathWriteException;
};

/// The same of what a metadata file says.
struct ConfPathWriteMetadataException : ConfPathWriteException
{
    using ConfPathWriteException::ConfPathWriteException;
};

/// A file could not be replaced; the changes to it are given up.
struct ConfPathFlushException : ConfPathWriteException
{
    using ConfPathWriteException::ConfPathWriteException;
};

/// No write rule has a place for the path.
struct ConfPathHasNoWriter : ConfPathWriteException
{
    using ConfPathWriteException::ConfPathWriteException;
};

/// What property pages throw.
struct PropertyPagesException : BaseException
{
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

/// There are no pages of an app that is turned off, save of its type "app".
class PropertyPagesDisabledAppException : public PropertyPagesException
{
public:
    explicit PropertyPagesDisabledAppException(const Str &app)
        : PropertyPagesException(Str::concat("Application is disabled: ", app))
    {
    }
};

/// Whoever is not privileged acts as itself, also for "nobody", but not as another user.
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

/// There is nothing of the name at the level that it would leave.
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
struct PropertyPagesSharingCollisionException : PropertyPagesSharingException
{
    using PropertyPagesSharingException::PropertyPagesSharingException;
};

} // namespace velmox
