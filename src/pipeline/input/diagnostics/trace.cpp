#include "pipeline/input/diagnostics/trace.h"

#include "util/system/last_error_keeper.h"
#include "util/system/windows_api.h"

#include <evntrace.h>
#include <wmistr.h>

namespace velmox::trace {

namespace {

// By which a session turns the provider on, and by which who reads a trace finds the table of formats. They
// never change.
constexpr GUID kControl = {0xEC915F6D, 0x0F39, 0x40DE, {0x8E, 0xFE, 0x08, 0xD0, 0x65, 0x45, 0x04, 0xA1}};
constexpr GUID kMonitorMessages = {
    0xBBD47D81, 0xA1F8, 0x551F, {0xB3, 0x7F, 0x8C, 0xE9, 0x88, 0xBB, 0x02, 0xF2}};
constexpr GUID kEntryPointMessages = {
    0x0F4EBB29, 0x6E02, 0x8E4D, {0x67, 0x61, 0xEB, 0x67, 0x47, 0xBD, 0x41, 0xFA}};
constexpr char kProviderName[] = "WinRegistryMonitor";

// Sequence, message identifier, time stamp and system information.
constexpr ULONG kMessageFlags = 43;

std::atomic<TRACEHANDLE> session{0};
// Kept as the session gives it; the flags alone let messages through.
std::atomic<UCHAR> enableLevel{0};

// Called by the system, on any thread, when a session turns this provider on or off. The flags come last when
// it is turned on and go first when it is turned off: while they are set, the session's handle is good.
ULONG WINAPI onControl(WMIDPREQUESTCODE request, void *, ULONG *, void *buffer)
{
    if (request == WMI_ENABLE_EVENTS) {
        const TRACEHANDLE handle = GetTraceLoggerHandle(buffer);
        session = handle;
        enableLevel = GetTraceEnableLevel(handle);
        enableFlags = GetTraceEnableFlags(handle);
    } else if (request == WMI_DISABLE_EVENTS) {
        enableFlags = 0;
        enableLevel = 0;
        session = 0;
    }
    return ERROR_SUCCESS;
}

// The argument list ends at its first null pointer, so unused arguments at the end need no count.
void sendAs(const GUID &guid, std::uint32_t message, const Argument &a, const Argument &b, const Argument &c,
            const Argument &d)
{
    // A call for diagnosis must not change what the line behind it reports.
    const LastErrorKeeper keeper;
    GUID identifier = guid;
    TraceMessage(session, kMessageFlags, &identifier, static_cast<USHORT>(message), a.data(), a.bytes(),
                 b.data(), b.bytes(), c.data(), c.bytes(), d.data(), d.bytes(), nullptr);
}

} // namespace

std::atomic<std::uint32_t> enableFlags{0};

std::size_t Argument::bytes() const
{
    return bytes_ == kTextEndsInNul ? std::char_traits<char>::length(static_cast<const char *>(data_)) + 1
                                    : bytes_;
}

void send(EntryPointMessage message, const Argument &a, const Argument &b)
{
    sendAs(kEntryPointMessages, static_cast<std::uint32_t>(message), a, b, {}, {});
}

void send(Message message, const Argument &function, const Argument &a, const Argument &b, const Argument &c)
{
    sendAs(kMonitorMessages, static_cast<std::uint32_t>(message), function, a, b, c);
}

Provider::Provider()
{
    // Registration asks for one class of messages at least; those of other classes pass as well.
    GUID messages = kMonitorMessages;
    TRACE_GUID_REGISTRATION traced = {&messages, nullptr};
    TRACEHANDLE handle = 0;
    if (RegisterTraceGuidsA(onControl, nullptr, &kControl, 1, &traced, nullptr, kProviderName, &handle) ==
        ERROR_SUCCESS) {
        registration_ = handle;
    }
}

Provider::~Provider()
{
    if (registration_ != 0) {
        UnregisterTraceGuids(registration_);
    }
}

} // namespace velmox::trace
