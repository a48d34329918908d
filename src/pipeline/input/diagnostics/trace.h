#pragma once

#include "util/text/str.h"

#include <atomic>
#include <cstdint>

/// The software trace: messages by number through the operating system's event tracing, for field diagnosis
/// alone. Nothing depends on it; without a trace session a call costs a load and a test. The thread's last
/// error stays as it was.
namespace velmox::trace {

// A message is its number in the low half, and in the high half the bit of the session's flags that lets it
// through: thus no two call sites can disagree about the kind of one message.
constexpr unsigned kNumberBits = 16;
constexpr std::uint32_t kError = 1u << kNumberBits;
constexpr std::uint32_t kWarning = 2u << kNumberBits;
constexpr std::uint32_t kInformation = 4u << kNumberBits;
constexpr std::uint32_t kEntry = 8u << kNumberBits;

/// Messages of the program's entry point. Who reads a trace has the numbers in a table of formats, so a
/// number keeps its meaning for ever.
enum class EntryPointMessage : std::uint32_t
{
    StopRequested = kInformation | 10,
    SafeModeRefused = kError | 11,
    RunFailed = kError | 12,
    Started = kInformation | 13
};

/// Messages of the monitor, each with the function's full name first. Numbers as above; those that are
/// missing are taken, and not to be given again.
enum class Message : std::uint32_t
{
    MonitorMade = kEntry | 10,
    MonitorGone = kEntry | 11,
    InitEntered = kEntry | 25,
    DriverNotReady = kError | 29,
    FilterNotSet = kError | 30,
    RunEntered = kEntry | 31,
    NoWorkerEvent = kError | 33,
    WorkerNotStarted = kError | 34,
    ServingBegins = kInformation | 35,
    EmptyBuffer = kInformation | 36,
    ServingEnds = kInformation | 37,
    WorkerHasEnded = kInformation | 38,
    ProcessDataEntered = kEntry | 39,
    RecordEntered = kEntry | 40,
    RegistryRecord = kInformation | 41,
    RegistryRecordDropped = kInformation | 42,
    RegistryEvent = kInformation | 43,
    ProcessRecord = kInformation | 44,
    CreationRecord = kInformation | 45,
    CreationDropped = kInformation | 46,
    CreationWritten = kInformation | 47,
    ExitRecord = kInformation | 48,
    ExitDropped = kInformation | 49,
    ExitEvent = kInformation | 50,
    ImageRecord = kInformation | 51,
    ImageDropped = kInformation | 52,
    ImageEvent = kInformation | 53,
    StartWorkerEntered = kEntry | 54,
    NothingToMonitor = kError | 55,
    BaselineBegins = kInformation | 56,
    BaselineFailed = kError | 57,
    BaselineEnds = kInformation | 58,
    NoWorkerThread = kError | 59,
    WorkerStarted = kInformation | 60,
    StartNotRecorded = kError | 62,
    NoReadBuffer = kError | 63,
    ReadBegins = kInformation | 64,
    BufferGrows = kInformation | 65,
    BufferAtCeiling = kError | 66,
    ReadFailed = kError | 67,
    ReadEnds = kInformation | 68,
    QueueRefuses = kError | 69,
    MemoryLimit = kWarning | 70,
    NothingRead = kInformation | 71,
    StopSeen = kInformation | 72,
    Idle = kInformation | 73,
    WorkerEnds = kInformation | 74,
    DriverOpen = kInformation | 79,
    SetFilterEntered = kEntry | 80,
    NoGroupForFilter = kError | 81,
    NoHiveRoot = kError | 82,
    OperationAsked = kInformation | 83,
    FilterRefused = kError | 84,
    FilterSet = kInformation | 85
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

/// Whether the session's flags let the message through; all that a call costs without a session.
template <class AnyMessage>
bool isOn(AnyMessage message)
{
    return (enableFlags.load(std::memory_order_relaxed) &
            static_cast<std::uint32_t>(message) >> kNumberBits) != 0;
}

void send(EntryPointMessage message, const Argument &a, const Argument &b);
void send(Message message, const Argument &function, const Argument &a, const Argument &b, const Argument &c);

inline void entryPoint(EntryPointMessage message, const Argument &a = {}, const Argument &b = {})
{
    if (isOn(message)) {
        send(message, a, b);
    }
}

inline void monitor(Message message, const char *function, const Argument &a = {}, const Argument &b = {},
                    const Argument &c = {})
{
    if (isOn(message)) {
        send(message, function, a, b, c);
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
