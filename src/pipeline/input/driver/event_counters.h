#pragma once

#include <atomic>
#include <cstdint>

namespace velmox {

// For the worker's line of statistics; any thread.

/// Buffers that held at least one byte when they came from the driver: reads, not records, despite the name.
inline std::atomic<std::int32_t> registry_evt_total{0};
/// Registry events written to the stream. Process events do not count.
inline std::atomic<std::int32_t> registry_evt_accepted{0};

} // namespace velmox
