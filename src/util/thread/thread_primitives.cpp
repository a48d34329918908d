#include "util/thread/thread_primitives.h"

#include "util/log/logger.h"
#include "util/text/str.h"

#include <utility>

namespace velmox {

namespace {

Logger threadLogger("Thread");

} // namespace

ThreadException::ThreadException(unsigned error, const char *fmt, std::va_list args)
    : BaseException(error, fmt, args)
{
    threadLogger.warn("%s", what());
}

void throwThreadException(unsigned error, const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    const ArgumentListEnd end{args};
    throw ThreadException(error, fmt, args);
}

namespace thread_primitives {

namespace {

/// Bytes; enough for a handler that does no more than hand over to another thread.
constexpr ULONG kReservedStack = 32 * 1024;

// What there is to say before `Thread` has set its hooks.
Str (*threadName)() = [] { return Str("Main Thread"); };
unsigned (*threadCount)() = [] { return 1u; };

/// Cleared once, when other threads may have died in unknown states.
bool threadErrorsThrow = true;

/// A failed wait, or one whose result means nothing here, such as a mutex whose owner died.
void reportBadWait(DWORD result, const char *word)
{
    if (result == WAIT_FAILED) {
        reportFailure(word);
    } else if (threadErrorsThrow) {
        throwThreadException(GetLastError(), "%s: unexpected return value 0x%lX from %s",
                             threadName().c_str(), result, word);
    }
}

/// Judges the result of a wait with a limit; false on timeout.
bool checkTimedWait(DWORD result, const char *word)
{
    if (result != WAIT_TIMEOUT && result != WAIT_OBJECT_0) {
        reportBadWait(result, word);
    }
    return result != WAIT_TIMEOUT;
}

/// The same for a wait without a limit.
void checkWait(DWORD result, const char *word)
{
    if (!checkTimedWait(result, word) && threadErrorsThrow) {
        throwThreadException(WAIT_TIMEOUT, "%s: unexpected timeout from %s", threadName().c_str(), word);
    }
}

} // namespace

bool errorsThrow()
{
    return threadErrorsThrow;
}

void ignoreErrorsFromNowOn()
{
    threadErrorsThrow = false;
}

void setThreadFacts(Str (*currentName)(), unsigned (*activeCount)())
{
    threadName = currentName;
    threadCount = activeCount;
}

void reserveStackForCrash()
{
    ULONG size = kReservedStack;
    SetThreadStackGuarantee(&size);
}

void reportFailure(const char *word)
{
    const DWORD error = GetLastError();
    if (threadErrorsThrow) {
        throwThreadException(error, "%s: about to throw a ThreadException: %s: %m; %u threads active",
                             threadName().c_str(), word, threadCount());
    }
}

void waitForObject(HANDLE object)
{
    checkWait(WaitForSingleObject(object, INFINITE), "WaitForSingleObject");
}

bool waitForObject(HANDLE object, DWORD milliseconds)
{
    return checkTimedWait(WaitForSingleObject(object, milliseconds), "WaitForSingleObject");
}

void signalAndWait(HANDLE released, HANDLE object)
{
    checkWait(SignalObjectAndWait(released, object, INFINITE, FALSE), "SignalObjectAndWait");
}

bool signalAndWait(HANDLE released, HANDLE object, DWORD milliseconds)
{
    return checkTimedWait(SignalObjectAndWait(released, object, milliseconds, FALSE), "SignalObjectAndWait");
}

HANDLE createAutoResetEvent()
{
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (event == nullptr) {
        reportFailure("CreateEvent");
    }
    return event;
}

void setEvent(HANDLE event)
{
    if (!SetEvent(event)) {
        reportFailure("SetEvent");
    }
}

void CheckedHandle::reset(HANDLE handle)
{
    // Given up before it is closed: if closing raises, nobody tries again.
    const HANDLE old = std::exchange(handle_, handle);
    if (old == nullptr) {
        return;
    }
    const DWORD error = GetLastError();
    if (!CloseHandle(old)) {
        reportFailure("CloseHandle");
    }
    SetLastError(error);
}

void CheckedHandle::closeWithoutRaising() noexcept
{
    try {
        reset();
    } catch (...) {
        // The failure has left its line, unless there was no memory for one.
    }
}

} // namespace thread_primitives

} // namespace velmox
