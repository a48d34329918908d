#pragma once

#include "bench/program.h"

#include <atomic>
#include <mutex>
#include <thread>

namespace velmox::bench {

/// What stands before the nine digits of a numbered event's key.
inline constexpr char kNumberMark[] = "\\Soak";

/// The numbers of the events that came, which are to rise from 0.
struct NumbersSeen
{
    std::uint64_t received = 0;
    std::uint64_t next = 0;       // one above the last that came
    std::uint64_t outOfOrder = 0; // repeated ones too
    std::uint64_t lost = 0;
    std::uint64_t firstLost = UINT64_MAX;
    std::uint64_t lastLost = 0;

    void add(std::uint64_t number);
};

/// Reads a program's output on a thread of its own, at a pace that can be changed, and keeps the numbers of
/// the events. The destructor waits for the end of the output: the program has to have ended.
class PacedReader
{
public:
    static constexpr unsigned kUnlimited = UINT32_MAX;

    explicit PacedReader(OutputPipe &pipe) : pipe_(pipe) {}
    ~PacedReader() { finish(); }

    /// 0 reads nothing more, once a read under way has ended.
    void setBytesPerSecond(unsigned bytes) { bytesPerSecond_ = bytes; }
    NumbersSeen numbers() const;

    /// Reads the rest without a limit and returns the last bytes of the output.
    Str finish();

private:
    void run();
    void take(const char *piece, std::size_t count);

    OutputPipe &pipe_;
    std::atomic<unsigned> bytesPerSecond_ = kUnlimited;
    mutable std::mutex mutex_; // for numbers_
    NumbersSeen numbers_;
    Str rest_; // of the output, not searched yet or too short to be
    std::thread thread_{[this] { run(); }};
};

} // namespace velmox::bench
