// What parent_watch_test starts: arms a watch and follows a script.
//
//     parent_watch_child MODE PID STEP...
//
// The watch is compiled into this program with its system calls rerouted, so that the one that the variable
// FAULT names fails with error 1450.

#include "util/windows_api.h"

#include <process.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

bool fails(const char *call)
{
    const char *fault = getenv("FAULT");
    if (fault == nullptr || strcmp(fault, call) != 0) {
        return false;
    }
    SetLastError(ERROR_NO_SYSTEM_RESOURCES);
    return true;
}

} // namespace

#define VELMOX_FAULTY(call, failure, ...) (fails(#call) ? (failure) : call(__VA_ARGS__))
#define malloc(size) VELMOX_FAULTY(malloc, nullptr, size)
#define calloc(...) VELMOX_FAULTY(calloc, nullptr, __VA_ARGS__)
#undef CreateEventW
#define CreateEventW(...) VELMOX_FAULTY(CreateEventW, nullptr, __VA_ARGS__)
#define CreateThread(...) VELMOX_FAULTY(CreateThread, nullptr, __VA_ARGS__)
#define _beginthreadex(...) VELMOX_FAULTY(_beginthreadex, 0, __VA_ARGS__)
#define OpenProcess(...) VELMOX_FAULTY(OpenProcess, nullptr, __VA_ARGS__)
#define WaitForMultipleObjects(...) VELMOX_FAULTY(WaitForMultipleObjects, WAIT_FAILED, __VA_ARGS__)
#define SetConsoleCtrlHandler(...) VELMOX_FAULTY(SetConsoleCtrlHandler, FALSE, __VA_ARGS__)
#define SetEvent(...) VELMOX_FAULTY(SetEvent, FALSE, __VA_ARGS__)
#include "util/parent_watch.cpp"
#undef SetEvent
#undef SetConsoleCtrlHandler

namespace {

constexpr DWORD kLimit = 20'000;
constexpr int kTimedOut = 77;

HANDLE called;
HANDLE pressed;
volatile LONG calls = 0;

void countCall(void *argument)
{
    InterlockedIncrement(&calls);
    printf("%s\n", static_cast<const char *>(argument));
    fflush(stdout);
    SetEvent(called);
}

/// Called before the watch's handler, which the signal goes on to.
BOOL WINAPI countPress(DWORD)
{
    ReleaseSemaphore(pressed, 1, nullptr);
    return FALSE;
}

void await(HANDLE object)
{
    if (WaitForSingleObject(object, kLimit) != WAIT_OBJECT_0) {
        ExitProcess(kTimedOut);
    }
}

void awaitLine()
{
    char line[16];
    if (fgets(line, sizeof(line), stdin) == nullptr) {
        ExitProcess(kTimedOut);
    }
}

void follow(const char *step)
{
    if (strcmp(step, "trigger") == 0) {
        velmox::triggerShutdown();
    } else if (strcmp(step, "stop") == 0) {
        velmox::stopParentWatch();
    } else if (strcmp(step, "rearm") == 0) {
        static char argument[] = "second callback";
        velmox::waitForParentOrSignal(countCall, argument, velmox::ParentWatchMode::ConsoleOnly, 0);
    } else if (strcmp(step, "called") == 0) {
        await(called);
    } else if (strcmp(step, "pressed") == 0) {
        await(pressed);
    } else if (strcmp(step, "input") == 0) {
        awaitLine();
    } else if (strcmp(step, "event") == 0) {
        SetEvent(OpenEventW(EVENT_MODIFY_STATE, FALSE, L"velmox-test-step"));
    } else if (strcmp(step, "idle") == 0) {
        Sleep(kLimit);
    } else if (strcmp(step, "settle") == 0) {
        Sleep(200);
    } else {
        printf("%s\n", step);
        fflush(stdout);
    }
}

} // namespace

int main(int count, char **arguments)
{
    called = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    pressed = CreateSemaphoreW(nullptr, 0, 100, nullptr);
    static char argument[] = "callback";
    velmox::waitForParentOrSignal(countCall, argument,
                                  static_cast<velmox::ParentWatchMode>(atoi(arguments[1])),
                                  static_cast<unsigned>(strtoul(arguments[2], nullptr, 10)));
    SetConsoleCtrlHandler(countPress, TRUE);
    for (int i = 3; i < count; ++i) {
        follow(arguments[i]);
    }
    return 200 + static_cast<int>(calls);
}
