#pragma once

#include "util/text/base_exception.h"

namespace velmox {

class ConfPathException : public BaseException
{
public:
    using BaseException::BaseException;
};

/// Nothing stands at the path.
class ConfPathDoesNotExistException : public ConfPathException
{
public:
    using ConfPathException::ConfPathException;
};

class ConfPathHasNoDataException : public ConfPathException
{
public:
    using ConfPathException::ConfPathException;
};

class ConfPathHasNoMetadataException : public ConfPathException
{
public:
    using ConfPathException::ConfPathException;
};

class ConfPathPermissionDeniedException : public ConfPathException
{
public:
    using ConfPathException::ConfPathException;
};

/// A part that becomes a file's or a directory's name would lead out of its directory.
class ConfPathDirectoryTraversalException : public ConfPathException
{
public:
    using ConfPathException::ConfPathException;
};

class ConfPathWriteException : public ConfPathException
{
public:
    using ConfPathException::ConfPathException;
};

class ConfPathWriteDataException : public ConfPathWriteException
{
public:
    using ConfPathWriteException::ConfPathWriteException;
};

class ConfPathWriteMetadataException : public ConfPathWriteException
{
public:
    using ConfPathWriteException::ConfPathWriteException;
};

class ConfPathFlushException : public ConfPathWriteException
{
public:
    using ConfPathWriteException::ConfPathWriteException;
};

/// No write rule has a place for the path.
class ConfPathHasNoWriter : public ConfPathWriteException
{
public:
    using ConfPathWriteException::ConfPathWriteException;
};

} // namespace velmox
