#include "util/process/parent_watch.h"

#include "util/system/windows_api.h"

#include <process.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

namespace velmox {

namespace {

constexpr DWORD kWatchRights = SYNCHRONIZE | PROCESS_QUERY_INFORMATION;
constexpr int kSetUpFailed = 1;
constexpr int kWatchedProcessDied = 2;
constexpr UINT kServerThreadFailed = 96;
constexpr UINT kServerEndedBefore = 97;
constexpr UINT kServerNotOpened = 98;
constexpr UINT kServerDied = 99;

/// Lives from `waitForParentOrSignal` to `stopParentWatch`. There are up to two watches, one after the other:
/// the first until a shutdown begins, the second, for DieWhenProcessDies alone, from then on.
struct ParentWatchState
{
    ShutdownCallback callback; // under the lock; null once it was called or the watch is torn down
    void *callbackArg;
    ParentWatchMode mode;
    unsigned pid;
    HANDLE watchThread;
    HANDLE stopEvent;             // manual-reset, set when a shutdown begins
    HANDLE volatile secondThread; // the second watch of DieWhenProcessDies; null if there is none
    HANDLE secondEvent;           // manual-reset, ends the second watch
    HANDLE watchedProcess;        // handed to the second watch
};

ParentWatchState *state = nullptr;
/// Kept for the life of the process: a console signal may come at any time.
CRITICAL_SECTION *stateLock = nullptr;
/// Opened once and watched to the end, whatever becomes of `state`.
HANDLE serverProcess = nullptr;

[[noreturn]] __attribute__((format(gnu_printf, 1, 2))) void fail(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    vfprintf(stderr, fmt, args);
    va_end(args);
    exit(kSetUpFailed);
}

unsigned lastError()
{
    return GetLastError();
}

HANDLE createManualResetEvent()
{
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr) {
        fail("Error creating unnamed event: CreateEvent: %u\n", lastError());
    }
    return event;
}

HANDLE createWatchThread(LPTHREAD_START_ROUTINE body)
{
    const HANDLE thread = CreateThread(nullptr, 0, body, nullptr, 0, nullptr);
    if (thread == nullptr) {
        fail("Error creating a new thread: CreateThread: %u\n", lastError());
    }
    return thread;
}

BOOL WINAPI handleConsoleSignal(DWORD type)
{
    // The window closed, the user logging off: there the system's own handling goes on.
    if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT) {
        return FALSE;
    }
    triggerShutdown();
    return TRUE;
}

enum class WaitEnd
{
    Event,
    Process,
    Failure
};

WaitEnd waitForEventOrProcess(HANDLE event, HANDLE process)
{
    const HANDLE handles[] = {event, process};
    switch (WaitForMultipleObjects(2, handles, FALSE, INFINITE)) {
    case WAIT_OBJECT_0:
        return WaitEnd::Event;
    case WAIT_OBJECT_0 + 1:
        return WaitEnd::Process;
    default:
        return WaitEnd::Failure;
    }
}

DWORD WINAPI watchDuringShutdown(void *)
{
    switch (waitForEventOrProcess(state->secondEvent, state->watchedProcess)) {
    case WaitEnd::Failure:
        fail("Error in WaitForMultipleObjects: %u\n", lastError());
    case WaitEnd::Process:
        exit(kWatchedProcessDied);
    case WaitEnd::Event:
        break;
    }
    return 0;
}

void startSecondWatch(HANDLE process)
{
    state->secondEvent = createManualResetEvent();
    state->watchedProcess = process;
    InterlockedExchangePointer(&state->secondThread, createWatchThread(watchDuringShutdown));
}

/// Null when the process is gone.
HANDLE openWatchedProcess()
{
    const HANDLE process = OpenProcess(kWatchRights, FALSE, state->pid);
    if (process == nullptr) {
        const unsigned error = GetLastError();
        // What Windows says of a number that no process has any more.
        if (error != ERROR_INVALID_PARAMETER && error != ERROR_PATH_NOT_FOUND) {
            fail("Error waiting for process with PID %u to finish: OpenProcess: %u\n", state->pid, error);
        }
    }
    return process;
}

/// Returns when a shutdown is to begin, or has begun. The handle stays open for the life of the process: the
/// second watch may have it.
void watchProcess()
{
    const bool dieAtOnce = state->mode == ParentWatchMode::DieWhenProcessDies;
    const HANDLE process = openWatchedProcess();
    const WaitEnd end =
        process != nullptr ? waitForEventOrProcess(state->stopEvent, process) : WaitEnd::Process;
    if (end == WaitEnd::Failure) {
        fail("Error waiting for process with PID %u to finish: WaitForMultipleObjects: %u\n", state->pid,
             lastError());
    }
    if (!dieAtOnce) {
        return;
    }
    if (end == WaitEnd::Process) {
        exit(kWatchedProcessDied);
    }
    // A shutdown has begun, but a parent that dies meanwhile must not leave this process behind.
    startSecondWatch(process);
}

DWORD WINAPI watchUntilShutdown(void *)
{
    watchProcess();
    triggerShutdown();
    return 0;
}

/// A process that ends with the code 259 itself is never seen to end.
unsigned __stdcall watchServer(void *)
{
    DWORD exitCode = STILL_ACTIVE;
    do {
        WaitForSingleObject(serverProcess, INFINITE);
    } while (!GetExitCodeProcess(serverProcess, &exitCode) || exitCode == STILL_ACTIVE);
    CloseHandle(serverProcess);
    ExitProcess(kServerDied);
}

void watchServerByEnvironment()
{
    wchar_t text[50] = {};
    size_t needed = 0;
    _wgetenv_s(&needed, text, sizeof(text) / sizeof(text[0]), L"VELMOXD_PROCESSID");
    if (text[0] == L'\0') {
        return;
    }
    // What is no number is read as 0, the idle process, which cannot be opened.
    serverProcess = OpenProcess(kWatchRights, FALSE, static_cast<DWORD>(_wtol(text)));
    if (serverProcess == nullptr) {
        ExitProcess(kServerNotOpened);
    }
    DWORD exitCode = STILL_ACTIVE;
    // A process that has ended can be opened as long as somebody holds a handle to it.
    if (GetExitCodeProcess(serverProcess, &exitCode) && exitCode != STILL_ACTIVE) {
        CloseHandle(serverProcess);
        ExitProcess(kServerEndedBefore);
    }
    const std::uintptr_t thread = _beginthreadex(nullptr, 0, watchServer, nullptr, 0, nullptr);
    if (thread == 0) {
        CloseHandle(serverProcess);
        ExitProcess(kServerThreadFailed);
    }
    CloseHandle(reinterpret_cast<HANDLE>(thread));
}

void makeLockOnce()
{
    if (stateLock != nullptr) {
        return;
    }
    // By malloc, as all of this: there may be no constructors yet, and no destructors any more.
    auto *lock = static_cast<CRITICAL_SECTION *>(malloc(sizeof(CRITICAL_SECTION)));
    if (lock == nullptr) {
        fail("Memory error: malloc: %u\n", lastError());
    }
    InitializeCriticalSection(lock);
    stateLock = lock;
}

void makeState()
{
    state = static_cast<ParentWatchState *>(calloc(1, sizeof(ParentWatchState)));
    if (state == nullptr) {
        fail("Memory error: calloc: %u\n", lastError());
    }
}

void startWatch()
{
    switch (state->mode) {
    case ParentWatchMode::ServerByEnvironment:
        watchServerByEnvironment();
        break;
    case ParentWatchMode::RunUntilProcessDies:
    case ParentWatchMode::DieWhenProcessDies:
        state->watchThread = createWatchThread(watchUntilShutdown);
        break;
    case ParentWatchMode::ConsoleOnly:
        break;
    }
}

void endSecondWatch()
{
    // Taken out in one step, as the first watch may be putting it in just now.
    const HANDLE thread = InterlockedExchangePointer(&state->secondThread, nullptr);
    if (thread == nullptr) {
        return;
    }
    SetEvent(state->secondEvent);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    CloseHandle(state->secondEvent);
}

void endFirstWatch()
{
    if (state->watchThread == nullptr) {
        return;
    }
    SetEvent(state->stopEvent);
    WaitForSingleObject(state->watchThread, INFINITE);
    CloseHandle(state->watchThread);
}

} // namespace

void waitForParentOrSignal(ShutdownCallback callback, void *argument, ParentWatchMode mode, unsigned pid)
{
    makeLockOnce();
    if (state != nullptr) {
        return;
    }
    makeState();
    state->callback = callback;
    state->callbackArg = argument;
    state->mode = mode;
    state->pid = pid;
    state->stopEvent = createManualResetEvent();
    startWatch();
    // Last, when all that a signal touches is there.
    if (!SetConsoleCtrlHandler(handleConsoleSignal, TRUE)) {
        fail("Error setting up signal handler: SetConsoleCtrlHandler: %u\n", lastError());
    }
}

void triggerShutdown()
{
    if (stateLock == nullptr) {
        return;
    }
    EnterCriticalSection(stateLock);
    if (state != nullptr && state->callback != nullptr) {
        // Ahead of the callback, which may take its time: the first watch goes on to the second one
        // meanwhile.
        if (!SetEvent(state->stopEvent)) {
            fail("Error signaling event: SetEvent: %u\n", lastError());
        }
        state->callback(state->callbackArg);
        state->callback = nullptr;
    }
    LeaveCriticalSection(stateLock);
}

void stopParentWatch()
{
    if (state == nullptr) {
        return;
    }
    EnterCriticalSection(stateLock);
    SetConsoleCtrlHandler(handleConsoleSignal, FALSE);
    state->callback = nullptr;
    LeaveCriticalSection(stateLock);

    // Without the lock, which the threads that end here must take to see that there is no callback left.
    endSecondWatch();
    endFirstWatch();
    // The first watch takes its end for the beginning of a shutdown and may have left a second one behind.
    endSecondWatch();
    EnterCriticalSection(stateLock);
    // With the lock again: a signal that came meanwhile waits there and then looks at the state.
    CloseHandle(state->stopEvent);
    free(state);
    state = nullptr;
    LeaveCriticalSection(stateLock);
}

} // namespace velmox
