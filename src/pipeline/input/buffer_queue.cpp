#include "pipeline/input/buffer_queue.h"

namespace velmox {

bool BufferQueue::create()
{
    port_.reset(CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 0));
    return port_.isValid();
}

bool BufferQueue::put(EventBuffer &buffer)
{
    // The packet's overlapped pointer carries the buffer; the system passes it on without looking behind it.
    auto *pointer = reinterpret_cast<OVERLAPPED *>(buffer.data.get());
    if (!PostQueuedCompletionStatus(port_.get(), buffer.bytes, 0, pointer)) {
        return false;
    }
    buffer.data.release();
    return true;
}

bool BufferQueue::get(EventBuffer &buffer, DWORD milliseconds)
{
    OVERLAPPED *pointer = nullptr;
    ULONG_PTR key = 0;
    if (!GetQueuedCompletionStatus(port_.get(), &buffer.bytes, &key, &pointer, milliseconds)) {
        return false;
    }
    buffer.data.reset(reinterpret_cast<unsigned char *>(pointer));
    return true;
}

} // namespace velmox
