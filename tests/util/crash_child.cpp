// What crash_log_test starts: dies in a chosen way.
//
//     crash_child WAY FOLDER          with "-" for no folder: the log is not armed

#include "tests/support/function_thread.h"
#include "util/crash_log.h"
#include "util/crash_notes.h"
#include "util/logger.h"
#include "util/thread_exception.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace {

using velmox::testing::FunctionThread;

void violate()
{
    SetLastError(1234);
    static volatile std::uintptr_t address = 0x10;
    *reinterpret_cast<volatile int *>(address) = 1;
}

void throwSomething()
{
    velmox::throwThreadException(ERROR_ACCESS_DENIED, "thrown on purpose: %s", "text");
}

void violateInHandler()
{
    try {
        throwSomething();
    } catch (const std::exception &) {
        violate();
    }
}

int overflow(int depth)
{
    volatile char block[4096];
    block[depth % 4096] = 1;
    return depth < 1'000'000'000 ? overflow(depth + 1) + block[0] : 0;
}

/// Wine's run-time library keeps its checks to itself, so the handler is called as a Windows one would.
void passBadArgument()
{
    const _invalid_parameter_handler handler = _set_invalid_parameter_handler(nullptr);
    handler(L"a != b", L"compare", nullptr, 12, 0);
    handler(nullptr, nullptr, nullptr, 0, 0);
    std::puts("went on");
}

struct Way
{
    const char *name;
    void (*die)();
};

constexpr Way kWays[] = {
    {"violation", violate},           {"exception", throwSomething}, {"overflow", [] { overflow(0); }},
    {"badargument", passBadArgument}, {"handler", violateInHandler},
};

void die(const char *name)
{
    const velmox::ScopedPerThreadCrashLogStringNotation outer("outer note %d", 1);
    {
        const velmox::ScopedPerThreadCrashLogStringNotation gone("note that is gone");
    }
    const velmox::ScopedPerThreadCrashLogStringNotation inner("inner note of %s", name);
    for (const Way &way : kWays) {
        if (std::strcmp(way.name, name) == 0) {
            way.die();
        }
    }
}

} // namespace

int main(int, char **arguments)
{
    velmox::testing::ensureMainThread();
    if (std::strcmp(arguments[2], "-") != 0) {
        velmox::armCrashLog(velmox::Pathname::fromUtf8(arguments[2]));
    }
    const char *way = arguments[1];
    if (std::strncmp(way, "main-", 5) == 0) {
        die(way + 5);
    } else {
        FunctionThread worker([way] { die(way); }, "dying worker");
        worker.start();
        worker.join();
    }
    return 0;
}
