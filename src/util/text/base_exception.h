#pragma once

#include "util/text/str.h"

#include <exception>

namespace velmox {

/// Root of the system's exceptions. The message is UTF-8; with the error-code form each `%m` of the format
/// stands for the system's text of that code.
class BaseException : public std::exception
{
public:
    /// The message as it stands: a percent sign in it means nothing.
    explicit BaseException(Str message) : message_(std::move(message)) {}
    BaseException(unsigned error, const char *fmt, std::va_list args)
    {
        message_.vformatWithError(error, fmt, args);
    }

    const char *what() const noexcept override { return message_.c_str(); }
    const Str &message() const { return message_; }

private:
    Str message_;
};

/// What a component raises when it cannot do its work at all; the entry point catches it.
class ComponentException : public BaseException
{
public:
    using BaseException::BaseException;
};

} // namespace velmox
