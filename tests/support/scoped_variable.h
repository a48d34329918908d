#pragma once

#include "util/system/environment.h"

namespace velmox::testing {

/// Sets a variable of this process's environment for as long as the object lives; empty takes it away.
class ScopedVariable
{
public:
    ScopedVariable(WideStr name, const WideStr &value)
        : name_(std::move(name)), before_(environmentVariable(name_.c_str()))
    {
        setEnvironmentVariable(name_.c_str(), value);
    }
    ~ScopedVariable() { setEnvironmentVariable(name_.c_str(), before_); }
    ScopedVariable(const ScopedVariable &) = delete;
    ScopedVariable &operator=(const ScopedVariable &) = delete;

private:
    const WideStr name_;
    const WideStr before_;
};

} // namespace velmox::testing
