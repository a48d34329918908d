#pragma once

#include <atomic>
#include <cstdint>

namespace velmox {

/// What mappers read from disk in this process, so that a measurement can show what reading costs.
struct ConfReadCounters
{
    std::atomic<std::uint64_t> filesOpened{0};
    std::atomic<std::uint64_t> bytesParsed{0};

    void count(std::uint64_t bytes)
    {
        filesOpened.fetch_add(1, std::memory_order_relaxed);
        bytesParsed.fetch_add(bytes, std::memory_order_relaxed);
    }
};

inline ConfReadCounters confReadCounters;

} // namespace velmox
