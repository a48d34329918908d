#pragma once

#include "util/system/windows_api.h"

namespace velmox {

/// The request to end, shared by the threads of the monitor: 0 while running, 1 from the first request on. It
/// never goes back.
class StopFlag
{
public:
    /// From any thread.
    void set() { InterlockedExchange(&value_, 1); }
    bool isSet() const { return value_ != 0; }
    /// For readers that poll the plain word, such as the registry walk.
    const volatile LONG *word() const { return &value_; }

private:
    volatile LONG value_ = 0;
};

} // namespace velmox
