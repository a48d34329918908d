#pragma once

#include <cstdint>
#include <set>
#include <utility>

namespace velmox {

class TimeoutQueue;

/// Time for intervals: milliseconds since some moment, never backwards. Any thread.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual std::uint64_t milliseconds() = 0;

    /// The system's, which counts while the machine runs and does not jump when its time is set.
    static Clock &system();
};

/// Something that is to happen at a moment. Belongs to one queue, which must outlive it, and to its thread.
class Timeout
{
public:
    explicit Timeout(TimeoutQueue &queue) : queue_(queue) {}
    Timeout(const Timeout &) = delete;
    Timeout &operator=(const Timeout &) = delete;
    virtual ~Timeout() { cancel(); }

    /// Sets the moment, in place of one that was set before.
    void scheduleIn(std::uint64_t milliseconds);
    /// Does nothing when no moment is set.
    void cancel();

private:
    friend class TimeoutQueue;
    /// The moment has come, or passed. May schedule anew.
    virtual void expire() = 0;

    TimeoutQueue &queue_;
    std::uint64_t due_ = 0; ///< in the clock's milliseconds
    bool scheduled_ = false;
};

/// The timeouts of an event loop, which calls `runDue` and sleeps as long as that says. For the loop's thread
/// alone; it owns neither the clock nor the timeouts, which take themselves off when they are destroyed.
class TimeoutQueue
{
public:
    static constexpr std::uint64_t kNothingDue = ~std::uint64_t{0};

    explicit TimeoutQueue(Clock &clock) : clock_(clock) {}

    /// Expires what is due. Returns the milliseconds to the next moment.
    std::uint64_t runDue();

private:
    friend class Timeout;

    Clock &clock_;
    /// By moment; the address keeps two of the same moment apart.
    std::set<std::pair<std::uint64_t, Timeout *>> pending_;
};

} // namespace velmox
