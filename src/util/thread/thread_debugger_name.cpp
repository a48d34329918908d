#include "util/thread/thread_debugger_name.h"

#include "util/system/windows_api.h"

namespace velmox {

namespace {

/// The exception by which debuggers for Windows learn thread names, and its arguments as they read them.
constexpr DWORD kNameException = 0x406D1388;

struct NameRecord
{
    DWORD type;
    const char *name;
    DWORD threadId;
    DWORD flags;
};
static_assert(sizeof(NameRecord) == 3 * sizeof(ULONG_PTR));

LONG WINAPI continueNameException(EXCEPTION_POINTERS *exception)
{
    return exception->ExceptionRecord->ExceptionCode == kNameException ? EXCEPTION_CONTINUE_EXECUTION
                                                                       : EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

// The compiler has no structured handlers, so a vectored one lets the thread go on when no debugger took the
// exception. It is there for the time of the call only.
void tellDebuggerThreadName(unsigned threadId, const char *name)
{
    const NameRecord record{0x1000, name, threadId, 0};
    void *handler = AddVectoredExceptionHandler(1, continueNameException);
    if (handler == nullptr) {
        return;
    }
    RaiseException(kNameException, 0, sizeof(record) / sizeof(ULONG_PTR),
                   reinterpret_cast<const ULONG_PTR *>(&record));
    RemoveVectoredExceptionHandler(handler);
}

} // namespace velmox
