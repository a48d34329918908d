#pragma once

#include "util/system/windows_api.h"

#include <cstdint>

namespace velmox::testing {

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
    /// The calls after the first `passed` ones return `result` with `error` as the thread's last error (and
    /// as errno for functions of the C library), `failures` times; all others reach the function.
    FailingCall(const char *function, std::intptr_t result, DWORD error, int passed = 0, int failures = 1);
    ~FailingCall();
    FailingCall(const FailingCall &) = delete;
    FailingCall &operator=(const FailingCall &) = delete;

    FailingCall &onAnyThread();

    /// The calls that have failed so far.
    int failed() const;
    /// All calls so far that count, whether they failed or not. With no failures the object only counts.
    int calls() const;

private:
    int slot_;
};

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
