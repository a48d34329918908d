#include "tests/support/failing_call.h"

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace velmox::testing {
namespace {

constexpr int kSlots = 4;

struct Slot
{
    std::vector<ULONGLONG *> entries;
    ULONGLONG function = 0;
    std::intptr_t result = 0;
    DWORD error = 0;
    std::atomic<DWORD> thread = 0;
    std::atomic<int> passing = 0;
    std::atomic<int> failing = 0;
    std::atomic<int> failed = 0;
    std::atomic<int> calls = 0;
};

Slot slots[kSlots];

bool takeOne(std::atomic<int> &count)
{
    int left = count;
    while (left > 0 && !count.compare_exchange_weak(left, left - 1)) {
    }
    return left > 0;
}

} // namespace

/// What a call has to go on to: the real function, or null if it is to fail. Leaves the last error alone.
extern "C" __attribute__((used)) ULONGLONG velmoxFailingCallTarget(int index)
{
    Slot &slot = slots[index];
    const DWORD thread = slot.thread;
    const bool counts = thread == 0 || thread == GetCurrentThreadId();
    slot.calls += counts ? 1 : 0;
    const bool passes = !counts || takeOne(slot.passing) || !takeOne(slot.failing);
    return passes ? slot.function : 0;
}

extern "C" __attribute__((used)) std::intptr_t velmoxFailingCallResult(int index)
{
    Slot &slot = slots[index];
    ++slot.failed;
    errno = static_cast<int>(slot.error);
    SetLastError(slot.error);
    return slot.result;
}

// A stand-in for any function: asks with the four register arguments put aside, and leaves by a jump, so that
// the arguments on the stack are where the function looks for them. The 40 bytes are the 32 that every callee
// may use and 8 that align the stack (Microsoft, "x64 calling convention"). No function with floating-point
// arguments is replaced, as their registers are not put aside.
#define VELMOX_FAILING_CALL(index)                                                                           \
    asm(".text\n"                                                                                            \
        "velmoxFailingCall" #index ":\n"                                                                     \
        "    pushq %rcx\n    pushq %rdx\n    pushq %r8\n    pushq %r9\n"                                     \
        "    subq $40, %rsp\n"                                                                               \
        "    movl $" #index ", %ecx\n"                                                                       \
        "    call velmoxFailingCallTarget\n"                                                                 \
        "    addq $40, %rsp\n"                                                                               \
        "    popq %r9\n    popq %r8\n    popq %rdx\n    popq %rcx\n"                                         \
        "    testq %rax, %rax\n"                                                                             \
        "    jz 1f\n"                                                                                        \
        "    jmp *%rax\n"                                                                                    \
        "1:  movl $" #index ", %ecx\n"                                                                       \
        "    jmp velmoxFailingCallResult\n");                                                                \
    extern "C" void velmoxFailingCall##index()

VELMOX_FAILING_CALL(0);
VELMOX_FAILING_CALL(1);
VELMOX_FAILING_CALL(2);
VELMOX_FAILING_CALL(3);

namespace {

constexpr void (*kStandIns[kSlots])() = {velmoxFailingCall0, velmoxFailingCall1, velmoxFailingCall2,
                                         velmoxFailingCall3};

/// Where this program's import tables keep the address of the function.
std::vector<ULONGLONG *> importEntries(std::string_view function)
{
    char *const base = reinterpret_cast<char *>(GetModuleHandleW(nullptr));
    const auto *dos = reinterpret_cast<IMAGE_DOS_HEADER *>(base);
    const auto *headers = reinterpret_cast<IMAGE_NT_HEADERS64 *>(base + dos->e_lfanew);
    const DWORD directory =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    std::vector<ULONGLONG *> found;
    for (auto *library = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR *>(base + directory); library->Name != 0;
         ++library) {
        const auto *name = reinterpret_cast<IMAGE_THUNK_DATA64 *>(base + library->OriginalFirstThunk);
        auto *address = reinterpret_cast<IMAGE_THUNK_DATA64 *>(base + library->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++address) {
            if (!IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal) &&
                function == reinterpret_cast<IMAGE_IMPORT_BY_NAME *>(base + name->u1.AddressOfData)->Name) {
                found.push_back(&address->u1.Function);
            }
        }
    }
    return found;
}

void redirect(const std::vector<ULONGLONG *> &entries, ULONGLONG target)
{
    for (ULONGLONG *entry : entries) {
        DWORD protection = 0;
        VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection);
        *entry = target;
        VirtualProtect(entry, sizeof *entry, protection, &protection);
    }
}

int freeSlot()
{
    for (int index = 0; index < kSlots; ++index) {
        if (slots[index].entries.empty()) {
            return index;
        }
    }
    throw std::logic_error("too many failing calls");
}

} // namespace

FailingCall::FailingCall(const Fault &fault) : slot_(freeSlot())
{
    Slot &slot = slots[slot_];
    slot.entries = importEntries(fault.function);
    if (slot.entries.empty()) {
        throw std::logic_error(std::string("not imported: ") + fault.function);
    }
    slot.function = *slot.entries.front();
    slot.result = fault.result;
    slot.error = fault.error;
    slot.thread = GetCurrentThreadId();
    slot.passing = fault.passed;
    slot.failing = fault.failures;
    slot.failed = 0;
    slot.calls = 0;
    redirect(slot.entries, reinterpret_cast<ULONGLONG>(kStandIns[slot_]));
}

FailingCall::~FailingCall()
{
    const DWORD error = GetLastError();
    redirect(slots[slot_].entries, slots[slot_].function);
    slots[slot_].entries.clear();
    SetLastError(error);
}

FailingCall &FailingCall::onAnyThread()
{
    slots[slot_].thread = 0;
    return *this;
}

int FailingCall::failed() const
{
    return slots[slot_].failed;
}

int FailingCall::calls() const
{
    return slots[slot_].calls;
}

ReplacedCall::ReplacedCall(const char *function, void *standIn) : function_(function)
{
    const std::vector<ULONGLONG *> entries = importEntries(function);
    if (entries.empty()) {
        throw std::logic_error(std::string("not imported: ") + function);
    }
    original_ = reinterpret_cast<void *>(*entries.front());
    redirect(entries, reinterpret_cast<ULONGLONG>(standIn));
}

ReplacedCall::~ReplacedCall()
{
    const DWORD error = GetLastError();
    redirect(importEntries(function_), reinterpret_cast<ULONGLONG>(original_));
    SetLastError(error);
}

} // namespace velmox::testing
