#pragma once

#include "util/owned_handle.h"

#include <memory>

namespace velmox {

/// Records as the driver wrote them, and how many bytes of them there are.
struct EventBuffer
{
    std::unique_ptr<unsigned char[]> data;
    DWORD bytes = 0;
};

/// Hands whole buffers from the worker to the main thread through a completion port; a buffer belongs to
/// whoever holds it. Buffers still queued when the queue goes are not freed: the process ends then.
class BufferQueue
{
public:
    bool create();
    void close() { port_.reset(); }
    bool isOpen() const { return port_.isValid(); }

    /// Takes the buffer over on success; on failure the caller keeps it, with the reason in the last error.
    bool put(EventBuffer &buffer);
    /// False when nothing came within `milliseconds`.
    bool get(EventBuffer &buffer, DWORD milliseconds);

private:
    KernelHandle port_;
};

} // namespace velmox
