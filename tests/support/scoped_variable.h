#pragma once

#include "util/system/environment.h"

namespace velmox::testing {

/// Sets a variable of this process's environment for as long as the object lives; empty takes it away.
class ScopedVariable
{
public:
    ScopedVariable(const char16_t *name, const WideStr &value)
        : name_(name), before_(environmentVariable(name))
    {
        setEnvironmentVariable(name_, value);
    }
    ~ScopedVariable() { setEnvironmentVariable(name_, before_); }
    ScopedVariable(const ScopedVariable &) = delete;
    ScopedVariable &operator=(const ScopedVariable &) = delete;

private:
    const char16_t *const name_;
    const WideStr before_;
};

} // namespace velmox::testing
