#include "util/crash/exception_text.h"

#include "util/crash/crash_sink.h"

#include <cstdlib>
#include <cxxabi.h>
#include <exception>
#include <typeinfo>

namespace velmox {

namespace {

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

/// The word for the first argument of an access violation.
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
        throw;
    } catch (const std::exception &exception) {
        sink.print("\r\n what(): ");
        sink.print(exception.what());
    } catch (...) {
    }
}

} // namespace

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

} // namespace velmox
