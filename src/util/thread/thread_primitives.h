#pragma once

#include "util/system/windows_api.h"
#include "util/text/base_exception.h"

namespace velmox {

/// A failure of a thread, a lock or a wait.
///
/// Made with a line at WARN through the logger "Thread", so that it leaves a trace even when it is swallowed.
class ThreadException : public BaseException
{
public:
    /// `%m` in the format stands for the text of `error`.
    ThreadException(unsigned error, const char *fmt, std::va_list args);
};

[[noreturn]] void throwThreadException(unsigned error, const char *fmt, ...) VELMOX_PRINTF(2, 3);

} // namespace velmox

/// What every primitive of threads and locks shares: the one rule for the result of a wait, the one way of a
/// failed call, and the switch that silences both in the last moments of the process.
namespace velmox::thread_primitives {

/// Whether failures are raised. While they are not, they pass in silence.
bool errorsThrow();
void ignoreErrorsFromNowOn();

/// Hooks for the messages of failures: the calling thread's name and the number of threads. `Thread`, which
/// stands above, sets them before `main`; without them there is but the main thread.
void setThreadFacts(Str (*currentName)(), unsigned (*activeCount)());

/// Keeps some of the calling thread's stack back, so that the end of the rest can still be reported.
void reserveStackForCrash();

/// Raises a `ThreadException` for the calling thread's last error, which must not have changed since the call
/// failed. Returns only when failures are ignored. `word` is the name of the call, for the message.
void reportFailure(const char *word);

/// The waits, whose failures and meaningless results are raised. Those with a limit are false on timeout.
void waitForObject(HANDLE object);
bool waitForObject(HANDLE object, DWORD milliseconds);
/// Releases `released` and begins to wait for `object` in one step.
void signalAndWait(HANDLE released, HANDLE object);
bool signalAndWait(HANDLE released, HANDLE object, DWORD milliseconds);

/// Without a name, and clear. The caller closes it; null only while failures are ignored.
HANDLE createAutoResetEvent();
void setEvent(HANDLE event);

/// Owner of a handle whose closing is a call like any other here: its failure raises.
class CheckedHandle
{
public:
    CheckedHandle() = default;
    explicit CheckedHandle(HANDLE handle) : handle_(handle) {}
    CheckedHandle(const CheckedHandle &) = delete;
    CheckedHandle &operator=(const CheckedHandle &) = delete;
    ~CheckedHandle() noexcept(false) { reset(); }

    bool isValid() const { return handle_ != nullptr; }
    HANDLE get() const { return handle_; }
    void reset(HANDLE handle = nullptr);
    /// For destructors that must not raise: a failure leaves its log line only.
    void closeWithoutRaising() noexcept;

private:
    HANDLE handle_ = nullptr;
};

} // namespace velmox::thread_primitives
