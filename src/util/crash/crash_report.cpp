#include "util/crash/crash_report.h"

#include "util/crash/cpu_identification.h"
#include "util/crash/crash_notes.h"
#include "util/crash/crash_sink.h"
#include "util/crash/crash_stack.h"
#include "util/crash/exception_text.h"
#include "util/system/owned_handle.h"
#include "util/thread/thread.h"

namespace velmox {

namespace {

void writeHeader(CrashSink &sink, unsigned buildNumber, const SYSTEMTIME &time)
{
    sink.format("[build %u] %04d-%02d-%02d %02d:%02d:%02d\r\n", buildNumber, time.wYear, time.wMonth,
                time.wDay, time.wHour, time.wMinute, time.wSecond);
}

void writeBacktrace(CrashSink &sink, const CrashFacts &facts)
{
    sink.print("\r\n OS: Windows\r\n Arch: x86-64\r\n\r\n Backtrace:\r\n");
    const KernelHandle thread(
        OpenThread(THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION, FALSE, facts.threadId));
    writeStack(sink, thread.get(), *facts.exception->ContextRecord);
}

void writeNotes(CrashSink &sink, const CrashNotes *notes)
{
    sink.print(" Crash notes:\r\n");
    if (notes != nullptr) {
        notes->write(sink);
    }
}

void writeCommandLine(CrashSink &sink)
{
    sink.print(" Command line: ");
    sink.print(asUtf16(GetCommandLineW()));
    sink.print("\r\n");
}

} // namespace

void writeCrashReport(CrashSink &sink, const SYSTEMTIME &localTime, const CrashFacts &facts)
{
    writeHeader(sink, facts.buildNumber, localTime);
    writeExceptionRecord(sink, *facts.exception->ExceptionRecord);
    // A fault inside a handler is not the fault of the exception that is being handled.
    if (facts.exception->ExceptionRecord->ExceptionCode == kCxxException) {
        writeExceptionInFlight(sink);
    }
    sink.format(" Crashing thread: %s\r\n", facts.threadName);
    writeRegisters(sink, *facts.exception->ContextRecord);
    writeBacktrace(sink, facts);
    writeNotes(sink, facts.notes);
    writeCommandLine(sink);
    sink.format(" Last error: %lu\r\n", facts.lastError);
    sink.format("Threads running: %u\r\n", Thread::activeCount());
    writeCpuIdentification(sink);
    sink.print("terminating...\r\n");
}

} // namespace velmox
