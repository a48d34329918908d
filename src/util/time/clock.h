#pragma once

#include <cstdint>

namespace velmox {

/// Time for intervals: milliseconds since some moment, never backwards. Any thread.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual std::uint64_t milliseconds() = 0;

    /// The system's, which counts while the machine runs.
    static Clock &system();
};

} // namespace velmox
