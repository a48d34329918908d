#include "util/crash/crash_log.h"

#include "util/crash/crash_report.h"
#include "util/crash/dbg_help.h"
#include "util/log/logger.h"
#include "util/system/environment.h"
#include "util/system/owned_handle.h"
#include "util/system/program_version.h"
#include "util/system/windows_api.h"
#include "util/thread/crash_sink.h"
#include "util/thread/thread.h"

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <stdio.h>
#include <vector>

namespace velmox {

namespace {

constexpr UINT kUncaughtException = 3; // the code of abort()
// Milliseconds: a dump takes seconds on a slow disk, and a report that hangs must not keep the process for
// ever.
constexpr DWORD kReportLimit = 60'000;
/// Bytes of stack for the thread that reports for one whose stack is used up. Without a number it would get
/// what the program is linked with, 128 MiB for the longest key paths, and Wine puts all of a thread's stack
/// into the dump.
constexpr SIZE_T kReportStack = 1u << 20;

/// Set by arming and never freed; null before.
const Pathname *fileStem = nullptr;
/// Read ahead of a crash, because looking for a resource may take locks of the loader.
unsigned buildNumber = 0;
/// The thread whose crash is reported; 0 before. One report a process.
LONG reportingThread = 0;

WideStr programPath()
{
    // The longest path that Windows has. The heap is whole still: this is done when the log is armed.
    std::vector<wchar_t> path(32768);
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return WideStr(asUtf16(path.data()), length);
}

/// The name of a crash log up to its time: the program's path with '.', ':' and '\' as '_', in the folder.
Pathname crashFileStem(const Pathname &folder)
{
    WideStr name = programPath();
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == u'.' || name[i] == u':' || name[i] == u'\\') {
            name[i] = u'_';
        }
    }
    Pathname stem = folder;
    stem.append(name.c_str(), name.size());
    return stem;
}

/// The file of one crash report, named by its stem and the local time; without a stem, or when the file
/// cannot be made, standard error takes its place. Nothing is buffered.
class CrashFile : public LimitedCrashSink
{
public:
    CrashFile(const char16_t *stem, const SYSTEMTIME &localTime)
    {
        if (stem == nullptr) {
            return;
        }
        // At its limit the routine writes no NUL; such a name is not used.
        const int length = _snwprintf(path_, kMostPathUnits, L"%ls_crash-%04d-%02d-%02d-%02d-%02d-%02d.log",
                                      asWide(stem), localTime.wYear, localTime.wMonth, localTime.wDay,
                                      localTime.wHour, localTime.wMinute, localTime.wSecond);
        if (length > 0 && length < static_cast<int>(kMostPathUnits)) {
            // Without permissions of its own: looking the identities up would take locks, which may be held
            // for ever now.
            file_.reset(CreateFileW(path_, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        }
    }

    /// Null while standard error stands in.
    const wchar_t *path() const { return file_.isValid() ? path_ : nullptr; }

private:
    static constexpr std::size_t kMostPathUnits = 1024;

    void put(const char *bytes, std::size_t length) override
    {
        DWORD written = 0;
        WriteFile(file_.isValid() ? file_.get() : GetStdHandle(STD_ERROR_HANDLE), bytes,
                  static_cast<DWORD>(length), &written, nullptr);
    }

    wchar_t path_[kMostPathUnits];
    FileHandle file_;
};

/// Last, as it is what is likeliest to fail; the text file is complete without it.
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

/// For a thread whose stack is used up. A limit, as the loader's lock may be held, without which no thread
/// begins.
void writeOnAnotherThread(CrashFacts &facts)
{
    const KernelHandle thread(CreateThread(nullptr, kReportStack, writeLogAndDump, &facts,
                                           STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
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
    if (IsDebuggerPresent()) {
        DebugBreak();
    }
    // What only the crashing thread can tell, taken before another one may do the writing.
    CrashFacts facts{exception, GetCurrentThreadId(), Thread::currentNameText(), Thread::currentOrMain(),
                     lastError, buildNumber};
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
    // Here and now: in the system's hands the process would wait for its debugger or for somebody to close a
    // window.
    TerminateProcess(GetCurrentProcess(), record.ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

// There is no record of a C++ exception here, so one is made, of the place that the run-time library called
// from.
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

/// Has fatal exceptions reported from here on. Until the log is armed a report goes to standard error, and
/// there is no dump.
void installCrashHandlers()
{
    buildNumber = ProgramVersion::ofThisProgram().build();
    SetUnhandledExceptionFilter(handleUnhandledException);
    std::set_terminate(handleTerminate);
    thread_primitives::reserveStackForCrash();
}

/// For every program that arms the crash log somewhere: the linker leaves this file out of the others.
[[maybe_unused]] const bool hookSet = (Thread::setMainThreadHook(installCrashHandlers), true);

Logger backtracerLogger("Backtracer");

void appendPart(Str &parts, const char *label, const wchar_t *text)
{
    if (text == nullptr) {
        return; // release builds of the library tell nothing
    }
    if (!parts.empty()) {
        parts << " ";
    }
    parts << label << asUtf16(text) << "'";
}

void logInvalidParameter(const wchar_t *expression, const wchar_t *function, const wchar_t *file,
                         unsigned line, std::uintptr_t)
{
    Str parts;
    appendPart(parts, "Expression='", expression);
    appendPart(parts, "Function='", function);
    appendPart(parts, "File='", file);
    backtracerLogger.error("%s Line='%d'", parts.c_str(), static_cast<int>(line));
}

/// Has the C run-time libraries that are loaded log their callers' bad arguments, through the logger
/// "Backtracer", and go on, as far as they let themselves be told.
///
/// By name, as what the linker finds for msvcrt.dll is a stand-in that tells the library nothing. A library
/// without the routine deals with bad arguments in its own way, and nothing of them is logged.
void logInvalidParameters()
{
    for (const wchar_t *name : {L"msvcrt.dll", L"ucrtbase.dll"}) {
        decltype(_set_invalid_parameter_handler) *setHandler = nullptr;
        const HMODULE library = GetModuleHandleW(name);
        if (library != nullptr && findRoutine(library, "_set_invalid_parameter_handler", setHandler)) {
            setHandler(logInvalidParameter);
        }
    }
}

} // namespace

void armCrashLog(const Pathname &folder)
{
    fileStem = new Pathname(crashFileStem(folder));
    loadDbgHelp();
    logInvalidParameters();
    installCrashHandlers();
}

Pathname crashLogFolder()
{
    const Pathname home = environmentVariable(u"VELMOX_HOME");
    return home.empty() ? Pathname(u".") : home.join("var").join("log").join("velmox");
}

} // namespace velmox
