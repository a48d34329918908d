#include "util/crash/crash_report.h"

#include "util/crash/crash_notes.h"
#include "util/crash/dbg_help.h"
#include "util/system/owned_handle.h"
#include "util/thread/crash_sink.h"
#include "util/thread/thread.h"

#include <cpuid.h>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <initializer_list>
#include <typeinfo>

namespace velmox {

namespace {

// Everything here runs in a process whose state is unknown. The demangler of type names is the one thing that
// takes memory from the heap; it stands behind the record of the exception, which is out by then.

struct CodeName
{
    DWORD code;
    const char *name;
};

constexpr CodeName kCodeNames[] = {
    {EXCEPTION_ACCESS_VIOLATION, "Access violation"},
    {EXCEPTION_ARRAY_BOUNDS_EXCEEDED, "Array bounds exceeded"},
    {EXCEPTION_BREAKPOINT, "Breakpoint"},
    {EXCEPTION_DATATYPE_MISALIGNMENT, "Data type misalignment"},
    {EXCEPTION_FLT_DIVIDE_BY_ZERO, "Floating-point division by zero"},
    {EXCEPTION_FLT_INVALID_OPERATION, "Floating-point invalid operation"},
    {EXCEPTION_FLT_OVERFLOW, "Floating-point overflow"},
    {EXCEPTION_FLT_UNDERFLOW, "Floating-point underflow"},
    {EXCEPTION_ILLEGAL_INSTRUCTION, "Illegal instruction"},
    {EXCEPTION_IN_PAGE_ERROR, "In-page error"},
    {EXCEPTION_INT_DIVIDE_BY_ZERO, "Integer division by zero"},
    {EXCEPTION_INT_OVERFLOW, "Integer overflow"},
    {EXCEPTION_INVALID_DISPOSITION, "Invalid disposition"},
    {EXCEPTION_NONCONTINUABLE_EXCEPTION, "Noncontinuable exception"},
    {EXCEPTION_PRIV_INSTRUCTION, "Privileged instruction"},
    {EXCEPTION_SINGLE_STEP, "Single step"},
    {EXCEPTION_STACK_OVERFLOW, "Stack overflow"},
    {STATUS_HEAP_CORRUPTION, "Heap corruption"},
    {kCxxException, "C++ exception"},
};

const char *nameOf(DWORD code)
{
    for (const CodeName &row : kCodeNames) {
        if (row.code == code) {
            return row.name;
        }
    }
    return "Exception";
}

/// The word for the first argument of an access violation: 0 reads, 1 writes, and 8, the only other one that
/// EXCEPTION_RECORD documents, executes.
const char *accessOf(ULONG_PTR kind)
{
    return kind == 0   ? "cannot read at address"
           : kind == 1 ? "cannot write at address"
                       : "cannot execute at address";
}

bool tellsAddress(const EXCEPTION_RECORD &record)
{
    return (record.ExceptionCode == static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION) ||
            record.ExceptionCode == static_cast<DWORD>(EXCEPTION_IN_PAGE_ERROR)) &&
           record.NumberParameters >= 2;
}

void writeTypeName(CrashSink &sink, const std::type_info &type)
{
    int status = 0;
    char *name = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
    sink.print(name != nullptr ? name : type.name());
    std::free(name);
}

/// The first base of a type, null if it has none; the type information is that of the Itanium C++ ABI.
const std::type_info *firstBase(const std::type_info &type)
{
    if (const auto *single = dynamic_cast<const abi::__si_class_type_info *>(&type)) {
        return single->__base_type;
    }
    const auto *multiple = dynamic_cast<const abi::__vmi_class_type_info *>(&type);
    return multiple != nullptr && multiple->__base_count != 0 ? multiple->__base_info[0].__base_type
                                                              : nullptr;
}

void writeTypeChain(CrashSink &sink, const std::type_info &type)
{
    writeTypeName(sink, type);
    for (const std::type_info *base = firstBase(type); base != nullptr; base = firstBase(*base)) {
        sink.print(" -> ");
        writeTypeName(sink, *base);
    }
}

void writeWhat(CrashSink &sink)
{
    try {
        // Thrown again to be caught by its base. The caller has seen that there is one.
        throw;
    } catch (const std::exception &exception) {
        sink.print("\r\n what(): ");
        sink.print(exception.what());
    } catch (...) {
    }
}

void writeExceptionRecord(CrashSink &sink, const EXCEPTION_RECORD &record)
{
    sink.format(" %s (0x%08lX) at %p", nameOf(record.ExceptionCode), record.ExceptionCode,
                record.ExceptionAddress);
    if (tellsAddress(record)) {
        sink.format(", %s [0x%016llX]", accessOf(record.ExceptionInformation[0]),
                    record.ExceptionInformation[1]);
    }
    sink.print("\r\n");
}

/// Writes the C++ exception that the calling thread is handling, if any: its type with the types it derives
/// from, and its text.
void writeExceptionInFlight(CrashSink &sink)
{
    const std::type_info *type = abi::__cxa_current_exception_type();
    if (type == nullptr) {
        return;
    }
    sink.print(" Exception type: ");
    writeTypeChain(sink, *type);
    writeWhat(sink);
    sink.print("\r\n");
}

struct CpuRegisters
{
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;

    explicit CpuRegisters(unsigned leaf) { __cpuid(leaf, eax, ebx, ecx, edx); }
};

/// Text that the processor gives in registers, four bytes in each.
struct CpuText
{
    char bytes[49] = {};

    CpuText(std::initializer_list<unsigned> registers)
    {
        std::memcpy(bytes, registers.begin(), registers.size() * sizeof(unsigned));
    }
};

CpuText vendor()
{
    const CpuRegisters leaf(0);
    return {leaf.ebx, leaf.edx, leaf.ecx};
}

CpuText brand()
{
    // Leaf 0x80000000 tells the last of the extended leaves; three of them have the name, 16 bytes each.
    constexpr unsigned kFirst = 0x80000002;
    if (CpuRegisters(0x80000000).eax < kFirst + 2) {
        return {};
    }
    const CpuRegisters a(kFirst);
    const CpuRegisters b(kFirst + 1);
    const CpuRegisters c(kFirst + 2);
    return {a.eax, a.ebx, a.ecx, a.edx, b.eax, b.ebx, b.ecx, b.edx, c.eax, c.ebx, c.ecx, c.edx};
}

/// Family and model with their extensions, as the makers define them for leaf 1.
unsigned family(unsigned signature)
{
    const unsigned base = signature >> 8 & 15;
    return base == 15 ? base + (signature >> 20 & 255) : base;
}

unsigned model(unsigned signature)
{
    const unsigned base = signature >> 8 & 15;
    const unsigned low = signature >> 4 & 15;
    return base == 6 || base == 15 ? (signature >> 16 & 15) << 4 | low : low;
}

void writeCpuIdentification(CrashSink &sink)
{
    SYSTEM_INFO system;
    GetNativeSystemInfo(&system);
    const unsigned signature = CpuRegisters(1).eax;
    sink.format(" CPU: %s, %s, family %u, model %u, stepping %u, %lu processors\r\n", vendor().bytes,
                brand().bytes, family(signature), model(signature), signature & 15,
                system.dwNumberOfProcessors);
}

void writeHeader(CrashSink &sink, unsigned buildNumber, const SYSTEMTIME &time)
{
    sink.format("[build %u] %04d-%02d-%02d %02d:%02d:%02d\r\n", buildNumber, time.wYear, time.wMonth,
                time.wDay, time.wHour, time.wMinute, time.wSecond);
}

void writeBacktrace(CrashSink &sink, const CrashFacts &facts)
{
    sink.print("\r\n OS: Windows\r\n Arch: x86-64\r\n\r\n Backtrace:\r\n");
    // A real handle: the one of GetCurrentThread means whichever thread uses it, and that need not be the one
    // that crashed.
    const KernelHandle thread(
        OpenThread(THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION, FALSE, facts.threadId));
    writeStack(sink, thread.get(), *facts.exception->ContextRecord);
}

void writeNotes(CrashSink &sink, const Thread *thread)
{
    sink.print(" Crash notes:\r\n");
    if (thread != nullptr) {
        writeCrashNotes(sink, *thread);
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
    writeNotes(sink, facts.thread);
    writeCommandLine(sink);
    sink.format(" Last error: %lu\r\n", facts.lastError);
    sink.format("Threads running: %u\r\n", Thread::activeCount());
    writeCpuIdentification(sink);
    sink.print("terminating...\r\n");
}

} // namespace velmox
