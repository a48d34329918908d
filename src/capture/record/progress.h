#pragma once

#include <chrono>
#include <cstdint>

namespace velmox {

/// Tells people how a recording goes: a line on standard error that is written over a few times a second, if
/// that is a terminal, and one in the end.
class Progress
{
public:
    struct Figures
    {
        std::uint64_t records = 0;
        std::uint64_t bytes = 0;
        std::uint64_t lostReads = 0;
    };

    /// When the recording ends by itself; zeros for no such end.
    Progress(std::uint64_t seconds, std::uint64_t bytes);

    void show(const Figures &figures);
    void end(const Figures &figures);

    std::uint64_t seconds() const;

private:
    using Clock = std::chrono::steady_clock;

    double doneShare(const Figures &figures) const;
    void write(const Figures &figures, const char *lineEnd);

    std::uint64_t lastSecond_;
    std::uint64_t lastByte_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point shown_;
    bool isTerminal_;
};

} // namespace velmox
