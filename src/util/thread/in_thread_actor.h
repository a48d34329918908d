#pragma once

#include "util/thread/event.h"

namespace velmox {

/// Something that an event loop runs on the loop's own thread.
class InThreadActor
{
public:
    virtual ~InThreadActor() = default;

    virtual void run() = 0;

protected:
    /// For an actor whose maker waits until the loop has run it.
    Event ran_;
};

} // namespace velmox
