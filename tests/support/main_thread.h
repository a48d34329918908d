#pragma once

#include "util/thread/thread.h"

namespace velmox::testing {

/// Makes the main thread's object once a test program; tests that make threads call it first.
inline void ensureMainThread()
{
    static Thread &mainThread = *new EmptyMainThread;
    static_cast<void>(mainThread);
}

} // namespace velmox::testing
