#pragma once

#include "util/system/windows_api.h"

#include <atomic>
#include <cstdint>

namespace velmox {

/// A slot of thread-local storage that exists while it has users: the first to come allocates it, the last to
/// leave frees it, from whatever threads.
///
/// Count and slot number stand in one atomic word, so that nobody reads a slot that another thread is just
/// giving back. A thread that comes while there are no users finds no value. Values are not owned; `release`
/// is called with a value that another one replaces, and with the value of the thread that leaves last.
/// Failures of the system calls raise `ThreadException`.
class CountedTlsSlot
{
public:
    using Release = void (*)(void *value);

    constexpr explicit CountedTlsSlot(Release release) : release_(release) {}
    CountedTlsSlot(const CountedTlsSlot &) = delete;
    CountedTlsSlot &operator=(const CountedTlsSlot &) = delete;

    /// Takes part in a slot from `enter` to its end, which raises what `TlsFree` says.
    class User
    {
    public:
        User() = default;
        User(const User &) = delete;
        User &operator=(const User &) = delete;
        ~User() noexcept(false)
        {
            if (slot_ != nullptr) {
                slot_->leave();
            }
        }

        /// To be called once at most.
        void enter(CountedTlsSlot &slot)
        {
            slot.enter();
            slot_ = &slot;
        }

    private:
        CountedTlsSlot *slot_ = nullptr;
    };

    unsigned userCount() const { return countOf(state_.load()); }

    /// The calling thread's value, null when there is none. Keeps the last error.
    void *get();
    /// The same, but false with the reason in the last error when the system call failed.
    bool tryGet(void *&value);
    /// Only for a thread that knows a user to stay for the time of the call.
    void set(void *value);

private:
    using State = std::uint64_t; // slot number above, count of users below

    static unsigned countOf(State state) { return static_cast<unsigned>(state); }
    static DWORD slotOf(State state) { return static_cast<DWORD>(state >> 32); }

    void enter();
    bool enterIfUsed();
    void leave();
    void freeSlot(DWORD slot);

    std::atomic<State> state_ = 0;
    Release release_;
};

} // namespace velmox
