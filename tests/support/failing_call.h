#pragma once

#include "util/system/windows_api.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <type_traits>

namespace velmox::testing {

/// Which calls of an imported function fail, and how: a row in a table of failures.
struct Fault
{
    const char *function;
    std::intptr_t result; ///< what the failing calls return
    DWORD error;          ///< the thread's last error then, and errno for functions of the C library
    int passed = 0;       ///< how many calls before them reach the function; so do those after them
    int failures = 1;     ///< with none, calls are only counted
};

/// Makes calls of one imported function fail while the object lives, which the operating system would not do
/// on request.
///
/// The entry of the function in this program's import table is replaced, so that product code linked into the
/// test meets the failure where it makes the call; output parameters stay untouched. Only calls of the
/// constructing thread count unless `onAnyThread` is called. At most four objects at a time, each for another
/// function. Throws std::logic_error if the program does not import the function.
class FailingCall
{
public:
    explicit FailingCall(const Fault &fault);
    FailingCall(const char *function, std::intptr_t result, DWORD error, int passed = 0, int failures = 1)
        : FailingCall(Fault{function, result, error, passed, failures})
    {
    }
    ~FailingCall();
    FailingCall(const FailingCall &) = delete;
    FailingCall &operator=(const FailingCall &) = delete;

    FailingCall &onAnyThread();

    /// The calls that have failed so far.
    int failed() const;
    /// All calls so far that count, whether they failed or not.
    int calls() const;

private:
    int slot_;
};

/// Gives what `work` gives while the fault is there, and fails unless `work` met all of it.
template <class Work>
auto whileFailing(const Fault &fault, Work &&work)
{
    const FailingCall refused(fault);
    const auto expectMet = [&] {
        EXPECT_EQ(refused.failed(), fault.failures) << fault.function << " after " << fault.passed;
    };
    if constexpr (std::is_void_v<decltype(work())>) {
        work();
        expectMet();
    } else {
        auto result = work();
        const DWORD error = GetLastError();
        expectMet();
        SetLastError(error);
        return result;
    }
}

/// Sends all calls of one imported function of this program to a function of the same form while the object
/// lives, for calls that give more than a result.
class ReplacedCall
{
public:
    template <class Function>
    ReplacedCall(const char *function, Function *standIn)
        : ReplacedCall(function, reinterpret_cast<void *>(standIn))
    {
    }
    ReplacedCall(const char *function, void *standIn);
    ~ReplacedCall();
    ReplacedCall(const ReplacedCall &) = delete;
    ReplacedCall &operator=(const ReplacedCall &) = delete;

    /// The function that the calls would have reached.
    template <class Function>
    Function *original() const
    {
        return reinterpret_cast<Function *>(original_);
    }

private:
    const char *function_;
    void *original_;
};

} // namespace velmox::testing
