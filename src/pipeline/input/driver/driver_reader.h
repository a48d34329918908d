#pragma once

#include "pipeline/input/driver/buffer_queue.h"
#include "pipeline/input/driver/device_channel.h"
#include "pipeline/input/driver/shared_state.h"

namespace velmox {

/// The worker's loop: pulls raw buffers out of the driver and queues them, at one system call and one queue
/// entry each, now and then a memory query, and does nothing else: what it does besides makes records wait
/// in the driver.
///
/// It polls: a read with records is followed by the next at once, one without by a sleep of 500 ms. When the
/// working set has reached its limit, what was read is dropped without a word: the only brake on the rate.
class DriverReader
{
public:
    /// The size of the monitor's first reads, in bytes.
    static constexpr DWORD kFirstSize = 8192;

    DriverReader(const DeviceChannel &device, BufferQueue &queue, const StopFlag &stop,
                 DWORD firstSize = kFirstSize)
        : device_(device), queue_(queue), stop_(stop), size_(firstSize)
    {
    }

    /// Returns when the flag is set, or after an error that cannot be retried; in the latter case the taker
    /// is given up to 500 ms for what waits.
    void run();

private:
    /// What follows a pass. `ReadAtOnce` counts no read and does not sleep.
    enum class Next
    {
        CountOrSleep,
        ReadAtOnce
    };

    /// One read, and what becomes of what it brought.
    Next pass();
    /// Gets the next buffer; false, with `result_` set, for want of memory.
    bool allocate();
    /// After a read whose record did not fit: asks for more room, up to the ceiling.
    Next growBuffer(DWORD error);
    /// Queues what was read, or drops it when there is too much in memory.
    Next handOver();
    bool hasRoom();
    /// The buffer goes to the taker; if the queue refuses it, it stays here and the loop ends.
    void post();
    bool countOrSleep();
    void countRead() const;

    const DeviceChannel &device_;
    BufferQueue &queue_;
    const StopFlag &stop_;
    // Empty after it was handed over, and where the last read asked for a larger one.
    EventBuffer buffer_;
    // Of the next buffer, in bytes.
    DWORD size_;
    // A failure ends the loop at the end of the pass. A failed read sets none: that is tried again.
    HRESULT result_ = 0;
    // What may still be queued before the working set has to be asked for again, in bytes.
    SIZE_T room_ = 0;
};

} // namespace velmox
