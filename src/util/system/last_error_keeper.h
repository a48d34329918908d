#pragma once

#include "util/text/platform.h"

namespace velmox {

/// Keeps the calling thread's last error over a scope: what it was at the beginning it is again at the end.
/// For code that logs or cleans up between a failure and whoever is to tell of it.
class LastErrorKeeper
{
public:
    LastErrorKeeper() : error_(platform::lastError()) {}
    ~LastErrorKeeper() { platform::setLastError(error_); }
    LastErrorKeeper(const LastErrorKeeper &) = delete;
    LastErrorKeeper &operator=(const LastErrorKeeper &) = delete;

    unsigned error() const { return error_; }

private:
    const unsigned error_;
};

} // namespace velmox
