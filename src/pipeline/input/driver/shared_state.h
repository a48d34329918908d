#pragma once

#include <atomic>
#include <cstdint>

// What the threads of the monitor share besides the queue of buffers.
namespace velmox {

/// The request to end: 0 while running, 1 from the first request on. It never goes back.
///
/// A plain word rather than an atomic object, because the walk over the registry polls the address of one. It
/// guards nothing: whoever sees it set may still find older values of everything else.
class StopFlag
{
public:
    /// From any thread.
    void set() { __atomic_exchange_n(&value_, 1, __ATOMIC_SEQ_CST); }
    bool isSet() const { return value_ != 0; }
    /// For readers that poll the plain word, such as the registry walk.
    const volatile long *word() const { return &value_; }

private:
    volatile long value_ = 0;
};

// Counts for the worker's line of statistics, over the whole process.

/// Buffers that held at least one byte when they came from the driver: reads, not records, despite the name.
inline std::atomic<std::int32_t> registry_evt_total{0};
/// Buffers that came from the driver and were dropped for want of memory.
inline std::atomic<std::int32_t> registry_reads_dropped{0};
/// Registry events written to the stream. Process events do not count.
inline std::atomic<std::int32_t> registry_evt_accepted{0};

} // namespace velmox
