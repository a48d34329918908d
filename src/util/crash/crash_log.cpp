#include "util/crash/crash_log.h"

#include "util/crash/crash_file.h"
#include "util/crash/crash_report.h"
#include "util/crash/dbg_help.h"
#include "util/crash/exception_text.h"
#include "util/crash/invalid_parameter.h"
#include "util/crash/mini_dump.h"
#include "util/system/environment.h"
#include "util/system/program_version.h"
#include "util/thread/thread.h"

#include <exception>
#include <stdio.h>

namespace velmox {

namespace {

constexpr UINT kUncaughtException = 3; // the code of abort()
constexpr ULONG kReservedStack = 32 * 1024;
constexpr DWORD kReportLimit = 60'000;

/// Set by arming and never freed; null before.
const Pathname *fileStem = nullptr;
/// Read ahead of a crash, as looking for a resource may take locks of the loader.
unsigned buildNumber = 0;
/// The thread whose crash is reported; 0 before. One report a process.
LONG reportingThread = 0;

void breakIntoDebugger()
{
    if (IsDebuggerPresent()) {
        DebugBreak();
    }
}

void writeDump(CrashFile &file, const CrashFacts &facts)
{
    if (file.path() == nullptr) {
        return;
    }
    wchar_t path[1040];
    _snwprintf(path, sizeof(path) / sizeof(path[0]), L"%ls.dmp", file.path());
    if (writeMiniDump(path, facts.threadId, facts.exception)) {
        file.print(" Crash dump written to: ");
        file.print(asUtf16(path));
        file.print("\r\n");
    }
}

DWORD WINAPI writeLogAndDump(void *argument)
{
    const CrashFacts &facts = *static_cast<const CrashFacts *>(argument);
    SYSTEMTIME localTime;
    GetLocalTime(&localTime);
    CrashFile file(fileStem != nullptr ? fileStem->c_str() : nullptr, localTime);
    writeCrashReport(file, localTime, facts);
    writeDump(file, facts);
    return 0;
}

/// For a thread whose stack is used up.
void writeOnAnotherThread(CrashFacts &facts)
{
    const KernelHandle thread(CreateThread(nullptr, 0, writeLogAndDump, &facts, 0, nullptr));
    if (thread.isValid()) {
        WaitForSingleObject(thread.get(), kReportLimit);
    }
}

/// True for the first crash alone. A thread that crashes while another one reports waits for the end of the
/// process; a crash within the report ends it.
bool beginReport(DWORD code)
{
    const auto self = static_cast<LONG>(GetCurrentThreadId());
    const LONG first = InterlockedCompareExchange(&reportingThread, self, 0);
    if (first == self) {
        TerminateProcess(GetCurrentProcess(), code);
    }
    if (first != 0) {
        Sleep(kReportLimit);
        return false;
    }
    return true;
}

void report(EXCEPTION_POINTERS *exception, DWORD lastError)
{
    const DWORD code = exception->ExceptionRecord->ExceptionCode;
    if (!beginReport(code)) {
        return;
    }
    breakIntoDebugger();
    Thread *thread = Thread::currentOrMain();
    CrashFacts facts{exception,
                     GetCurrentThreadId(),
                     Thread::currentNameText(),
                     thread != nullptr ? &thread->crashNotes() : nullptr,
                     lastError,
                     buildNumber};
    if (code == static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW)) {
        writeOnAnotherThread(facts);
    } else {
        writeLogAndDump(&facts);
    }
}

LONG WINAPI handleUnhandledException(EXCEPTION_POINTERS *exception)
{
    const DWORD lastError = GetLastError();
    const EXCEPTION_RECORD &record = *exception->ExceptionRecord;
    // A C++ exception without a handler goes back to its run-time library, which calls the terminate handler.
    if (record.ExceptionCode == kCxxException && !(record.ExceptionFlags & EXCEPTION_NONCONTINUABLE)) {
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    report(exception, lastError);
    TerminateProcess(GetCurrentProcess(), record.ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

[[noreturn]] void handleTerminate()
{
    const DWORD lastError = GetLastError();
    CONTEXT context;
    RtlCaptureContext(&context);
    EXCEPTION_RECORD record{};
    record.ExceptionCode = kCxxException;
    record.ExceptionFlags = EXCEPTION_NONCONTINUABLE;
    record.ExceptionAddress = reinterpret_cast<void *>(context.Rip);
    EXCEPTION_POINTERS exception{&record, &context};
    report(&exception, lastError);
    TerminateProcess(GetCurrentProcess(), kUncaughtException);
    __builtin_unreachable();
}

} // namespace

void installCrashHandlers()
{
    buildNumber = ProgramVersion::ofThisProgram().build();
    SetUnhandledExceptionFilter(handleUnhandledException);
    std::set_terminate(handleTerminate);
    reserveStackForCrash();
}

void armCrashLog(const Pathname &folder)
{
    fileStem = new Pathname(crashFileStem(folder));
    DbgHelp::instance();
    logInvalidParameters();
    installCrashHandlers();
}

Pathname crashLogFolder()
{
    const Pathname home = environmentVariable(u"VELMOX_HOME");
    return home.empty() ? Pathname(u".") : home.join("var").join("log").join("velmox");
}

void reserveStackForCrash()
{
    ULONG size = kReservedStack;
    SetThreadStackGuarantee(&size);
}

} // namespace velmox
