#include "util/crash/dbg_help.h"

#include "util/system/owned_handle.h"
#include "util/system/windows_api.h"
#include "util/thread/crash_sink.h"

#include <dbghelp.h>

namespace velmox {

namespace {

/// The calls of DbgHelp.dll, found at run time; null where the library or the call is missing.
struct DbgHelp
{
    decltype(&::SymSetOptions) symSetOptions = nullptr;
    decltype(&::SymInitialize) symInitialize = nullptr;
    decltype(&::SymFromAddr) symFromAddr = nullptr;
    decltype(&::SymGetLineFromAddr64) symGetLineFromAddr64 = nullptr;
    decltype(&::SymGetModuleInfo64) symGetModuleInfo64 = nullptr;
    decltype(&::SymFunctionTableAccess64) symFunctionTableAccess64 = nullptr;
    decltype(&::SymGetModuleBase64) symGetModuleBase64 = nullptr;
    decltype(&::StackWalk64) stackWalk64 = nullptr;
    decltype(&::MiniDumpWriteDump) miniDumpWriteDump = nullptr;

    /// Loads the library on the first call, and never lets it go.
    static const DbgHelp &instance();

    bool canWalk() const;
};

/// Looks for each call by itself: older libraries lack some, and a dump needs no more than its own.
DbgHelp load()
{
    DbgHelp calls;
    const HMODULE library = LoadLibraryW(L"DbgHelp.dll");
    if (library == nullptr) {
        return calls;
    }
    findRoutine(library, "SymSetOptions", calls.symSetOptions);
    findRoutine(library, "SymInitialize", calls.symInitialize);
    findRoutine(library, "SymFromAddr", calls.symFromAddr);
    findRoutine(library, "SymGetLineFromAddr64", calls.symGetLineFromAddr64);
    findRoutine(library, "SymGetModuleInfo64", calls.symGetModuleInfo64);
    findRoutine(library, "SymFunctionTableAccess64", calls.symFunctionTableAccess64);
    findRoutine(library, "SymGetModuleBase64", calls.symGetModuleBase64);
    findRoutine(library, "StackWalk64", calls.stackWalk64);
    findRoutine(library, "MiniDumpWriteDump", calls.miniDumpWriteDump);
    return calls;
}

const DbgHelp &DbgHelp::instance()
{
    static const DbgHelp calls = load();
    return calls;
}

bool DbgHelp::canWalk() const
{
    return symSetOptions && symInitialize && symFromAddr && symGetLineFromAddr64 && symGetModuleInfo64 &&
           symFunctionTableAccess64 && symGetModuleBase64 && stackWalk64;
}

/// A recursion without an end would fill the report; its innermost frames show what it is.
constexpr unsigned kMostFrames = 200;
constexpr DWORD kMostNameBytes = 512;

struct Register
{
    const char *name;
    DWORD64 CONTEXT::*value;
};

constexpr Register kRegisters[] = {
    {"RIP", &CONTEXT::Rip}, {"RSP", &CONTEXT::Rsp}, {"RBP", &CONTEXT::Rbp}, {"RAX", &CONTEXT::Rax},
    {"RBX", &CONTEXT::Rbx}, {"RCX", &CONTEXT::Rcx}, {"RDX", &CONTEXT::Rdx}, {"RSI", &CONTEXT::Rsi},
    {"RDI", &CONTEXT::Rdi}, {"R8", &CONTEXT::R8},   {"R9", &CONTEXT::R9},   {"R10", &CONTEXT::R10},
    {"R11", &CONTEXT::R11}, {"R12", &CONTEXT::R12}, {"R13", &CONTEXT::R13}, {"R14", &CONTEXT::R14},
    {"R15", &CONTEXT::R15},
};

/// The walk of one stack, with the symbols of this process.
class StackWalk
{
public:
    StackWalk(const DbgHelp &dbgHelp, HANDLE thread, const CONTEXT &context)
        : dbgHelp_(dbgHelp), thread_(thread), context_(context)
    {
        // Names as the source has them, a module's symbols only when an address lies in it, and no message
        // box for a file that cannot be read.
        dbgHelp_.symSetOptions(SYMOPT_UNDNAME | SYMOPT_DEFERRED_LOADS | SYMOPT_LOAD_LINES |
                               SYMOPT_FAIL_CRITICAL_ERRORS);
        // TRUE has it take in the modules that are loaded now.
        dbgHelp_.symInitialize(process_, nullptr, TRUE);
        // Where the walk begins; on x86-64 it goes on by the unwind data of each function.
        frame_.AddrPC = {context.Rip, 0, AddrModeFlat};
        frame_.AddrStack = {context.Rsp, 0, AddrModeFlat};
        frame_.AddrFrame = {context.Rbp, 0, AddrModeFlat};
    }

    bool next()
    {
        return dbgHelp_.stackWalk64(IMAGE_FILE_MACHINE_AMD64, process_, thread_, &frame_, &context_, nullptr,
                                    dbgHelp_.symFunctionTableAccess64, dbgHelp_.symGetModuleBase64,
                                    nullptr) &&
               frame_.AddrPC.Offset != 0;
    }

    void writeFrame(CrashSink &sink) const
    {
        const DWORD64 address = frame_.AddrPC.Offset;
        sink.format("  [0x%016llX] ", address);
        writeFunction(sink, address);
        writeModule(sink, address);
        writeLine(sink, address);
        sink.print("\r\n");
    }

private:
    void writeFunction(CrashSink &sink, DWORD64 address) const
    {
        // The name stands behind the structure, in the same buffer.
        alignas(SYMBOL_INFO) char buffer[sizeof(SYMBOL_INFO) + kMostNameBytes] = {};
        auto *symbol = reinterpret_cast<SYMBOL_INFO *>(buffer);
        symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
        symbol->MaxNameLen = kMostNameBytes;
        DWORD64 offset = 0;
        if (dbgHelp_.symFromAddr(process_, address, &offset, symbol)) {
            sink.format("%s + %llu", symbol->Name, offset);
        } else {
            sink.print("?");
        }
    }

    void writeModule(CrashSink &sink, DWORD64 address) const
    {
        IMAGEHLP_MODULE64 module{};
        module.SizeOfStruct = sizeof(module);
        if (dbgHelp_.symGetModuleInfo64(process_, address, &module)) {
            sink.format(" (%s + 0x%llX)", module.ModuleName, address - module.BaseOfImage);
        }
    }

    void writeLine(CrashSink &sink, DWORD64 address) const
    {
        IMAGEHLP_LINE64 line{};
        line.SizeOfStruct = sizeof(line);
        DWORD offset = 0;
        if (dbgHelp_.symGetLineFromAddr64(process_, address, &offset, &line)) {
            sink.format(" %s:%lu", line.FileName, line.LineNumber);
        }
    }

    const DbgHelp &dbgHelp_;
    HANDLE process_ = GetCurrentProcess();
    HANDLE thread_;
    CONTEXT context_; // a copy, for each step changes it
    STACKFRAME64 frame_{};
};

} // namespace

void writeRegisters(CrashSink &sink, const CONTEXT &context)
{
    constexpr int kPerLine = 4;
    sink.print(" Registers:\r\n");
    int column = 0;
    for (const Register &row : kRegisters) {
        sink.format("  %-3s [0x%016llX]", row.name, context.*row.value);
        if (++column % kPerLine == 0) {
            sink.print("\r\n");
        }
    }
    sink.format("  EFL [0x%08lX]\r\n", context.EFlags);
}

void writeStack(CrashSink &sink, HANDLE thread, const CONTEXT &context)
{
    const DbgHelp &dbgHelp = DbgHelp::instance();
    if (!dbgHelp.canWalk()) {
        sink.print("  not available: no DbgHelp.dll\r\n");
        return;
    }
    StackWalk walk(dbgHelp, thread, context);
    for (unsigned frames = 0; frames < kMostFrames && walk.next(); ++frames) {
        walk.writeFrame(sink);
    }
}

bool writeMiniDump(const wchar_t *path, DWORD threadId, EXCEPTION_POINTERS *exception)
{
    const DbgHelp &dbgHelp = DbgHelp::instance();
    if (dbgHelp.miniDumpWriteDump == nullptr) {
        return false;
    }
    const FileHandle file(
        CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid()) {
        return false;
    }
    // FALSE: the pointers are this process's own.
    MINIDUMP_EXCEPTION_INFORMATION information{threadId, exception, FALSE};
    return dbgHelp.miniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file.get(), MiniDumpNormal,
                                     &information, nullptr, nullptr);
}

void loadDbgHelp()
{
    DbgHelp::instance();
}

} // namespace velmox
