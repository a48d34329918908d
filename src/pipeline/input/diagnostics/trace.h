#pragma once

#include "util/system/windows_api.h"
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
constexpr std::uint32_t error(std::uint32_t number)
{
    return 1u << kNumberBits | number;
}
constexpr std::uint32_t warning(std::uint32_t number)
{
    return 2u << kNumberBits | number;
}
constexpr std::uint32_t information(std::uint32_t number)
{
    return 4u << kNumberBits | number;
}
constexpr std::uint32_t entry(std::uint32_t number)
{
    return 8u << kNumberBits | number;
}

/// Messages of the program's entry point. Who reads a trace has the numbers in a table of formats, so a
/// number keeps its meaning for ever.
enum class EntryPointMessage : std::uint32_t
{
    StopRequested = information(10),
    SafeModeRefused = error(11),
    RunFailed = error(12),
    Started = information(13)
};

/// Messages of the monitor, each with the function's full name first. Numbers as above.
enum class Message : std::uint32_t
{
    MonitorMade = entry(10),
    MonitorGone = entry(11),
    InitEntered = entry(25),
    DriverNotReady = error(29),
    FilterNotSet = error(30),
    RunEntered = entry(31),
    NoWorkerEvent = error(33),
    WorkerNotStarted = error(34),
    ServingBegins = information(35),
    EmptyBuffer = information(36),
    ServingEnds = information(37),
    WorkerHasEnded = information(38),
    ProcessDataEntered = entry(39),
    RecordEntered = entry(40),
    RegistryRecord = information(41),
    RegistryRecordDropped = information(42),
    RegistryEvent = information(43),
    ProcessRecord = information(44),
    CreationRecord = information(45),
    CreationDropped = information(46),
    CreationWritten = information(47),
    ExitRecord = information(48),
    ExitDropped = information(49),
    ExitEvent = information(50),
    ImageRecord = information(51),
    ImageDropped = information(52),
    ImageEvent = information(53),
    StartWorkerEntered = entry(54),
    NothingToMonitor = error(55),
    BaselineBegins = information(56),
    BaselineFailed = error(57),
    BaselineEnds = information(58),
    NoWorkerThread = error(59),
    WorkerStarted = information(60),
    StartNotRecorded = error(62),
    NoReadBuffer = error(63),
    ReadBegins = information(64),
    BufferGrows = information(65),
    BufferAtCeiling = error(66),
    ReadFailed = error(67),
    ReadEnds = information(68),
    QueueRefuses = error(69),
    MemoryLimit = warning(70),
    NothingRead = information(71),
    StopSeen = information(72),
    Idle = information(73),
    WorkerEnds = information(74),
    DriverOpen = information(79),
    SetFilterEntered = entry(80),
    NoGroupForFilter = error(81),
    NoHiveRoot = error(82),
    OperationAsked = information(83),
    FilterRefused = error(84),
    FilterSet = information(85)
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
