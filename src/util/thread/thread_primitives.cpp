#include "util/thread/thread_primitives.h"

#include "util/thread/thread.h"
#include "util/thread/thread_exception.h"

#include <utility>

namespace velmox::thread_primitives {

namespace {

/// Cleared once, when other threads may have died in unknown states.
bool threadErrorsThrow = true;

void reportUnexpectedTimeout(const char *word)
{
    if (threadErrorsThrow) {
        throwThreadException(WAIT_TIMEOUT, "%s: unexpected timeout from %s", Thread::currentName().c_str(),
                             word);
    }
}

/// A failed wait, or one whose result means nothing here, such as a mutex whose owner died.
void reportBadWait(DWORD result, const char *word)
{
    if (result == WAIT_FAILED) {
        reportFailure(word);
    } else if (threadErrorsThrow) {
        throwThreadException(GetLastError(), "%s: unexpected return value 0x%lX from %s",
                             Thread::currentName().c_str(), result, word);
    }
}

/// Judges the result of a wait without a limit.
void checkWait(DWORD result, const char *word)
{
    if (result == WAIT_TIMEOUT) {
        reportUnexpectedTimeout(word);
    } else if (result != WAIT_OBJECT_0) {
        reportBadWait(result, word);
    }
}

/// The same for a wait with a limit; false on timeout.
bool checkTimedWait(DWORD result, const char *word)
{
    if (result == WAIT_TIMEOUT) {
        return false;
    }
    if (result != WAIT_OBJECT_0) {
        reportBadWait(result, word);
    }
    return true;
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

void reportFailure(const char *word)
{
    const DWORD error = GetLastError();
    if (threadErrorsThrow) {
        throwThreadException(error, "%s: about to throw a ThreadException: %s: %m; %u threads active",
                             Thread::currentName().c_str(), word, Thread::activeCount());
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

} // namespace velmox::thread_primitives
