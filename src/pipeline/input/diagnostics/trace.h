#pragma once

#include "util/system/windows_api.h"
#include "util/text/str.h"

#include <atomic>
#include <cstdint>

/// The software trace: messages by number through the operating system's event tracing, for field diagnosis
/// alone. Nothing depends on it; without a trace session a call costs a load and a test. The thread's last
/// error stays as it was.
namespace velmox::trace {

/// The bit of the session's enable flags that lets a message through.
enum class Kind : std::uint32_t
{
    Error = 1,
    Warning = 2,
    Information = 4,
    /// Entry to a function.
    Entry = 8
};

/// A message's argument as event tracing takes it: bytes and their length. Text goes with its NUL, a null
/// text as "NULL". Refers to what it is made of, which must stand until the message is sent.
class Argument
{
public:
    Argument() = default;
    Argument(const char *text) : data_(text ? text : "NULL"), bytes_(kTextEndsInNul) {}
    Argument(const Str &text) : data_(text.c_str()), bytes_(text.size() + 1) {}
    Argument(const std::uint32_t &number) : data_(&number), bytes_(sizeof number) {}
    Argument(const unsigned long &number) : data_(&number), bytes_(sizeof number) {}
    /// Counted UTF-16 text, which need not end in a NUL.
    Argument(const char16_t *text, std::size_t units) : data_(text), bytes_(units * sizeof *text) {}

    const void *data() const { return data_; }
    std::size_t bytes() const;

private:
    // Stands for a length that is found only when the message is sent.
    static constexpr std::size_t kTextEndsInNul = static_cast<std::size_t>(-1);

    const void *data_ = nullptr;
    std::size_t bytes_ = 0;
};

extern std::atomic<std::uint32_t> enableFlags;

inline bool isOn(Kind kind)
{
    return (enableFlags.load(std::memory_order_relaxed) & static_cast<std::uint32_t>(kind)) != 0;
}

void sendEntryPointMessage(std::uint16_t number, const Argument &a, const Argument &b);
void sendMonitorMessage(std::uint16_t number, const Argument &function, const Argument &a, const Argument &b,
                        const Argument &c);

/// A message of the program's entry point; numbers 10 to 13.
inline void entryPoint(Kind kind, std::uint16_t number, const Argument &a = {}, const Argument &b = {})
{
    if (isOn(kind)) {
        sendEntryPointMessage(number, a, b);
    }
}

/// A message of the monitor, with the function's full name first; numbers 10 to 104.
inline void monitor(Kind kind, std::uint16_t number, const char *function, const Argument &a = {},
                    const Argument &b = {}, const Argument &c = {})
{
    if (isOn(kind)) {
        sendMonitorMessage(number, function, a, b, c);
    }
}

/// Registers the provider for as long as the object lives. One per process.
class Provider
{
public:
    Provider();
    ~Provider();
    Provider(const Provider &) = delete;
    Provider &operator=(const Provider &) = delete;

private:
    std::uint64_t registration_ = 0;
};

} // namespace velmox::trace
