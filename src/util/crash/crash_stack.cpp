#include "util/crash/crash_stack.h"

#include "util/crash/crash_sink.h"
#include "util/crash/dbg_help.h"

namespace velmox {

namespace {

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
        dbgHelp_.symSetOptions(SYMOPT_UNDNAME | SYMOPT_DEFERRED_LOADS | SYMOPT_LOAD_LINES |
                               SYMOPT_FAIL_CRITICAL_ERRORS);
        dbgHelp_.symInitialize(process_, nullptr, TRUE);
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
    CONTEXT context_; // changed by each step
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

} // namespace velmox
