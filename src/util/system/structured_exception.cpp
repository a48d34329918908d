#include "util/system/structured_exception.h"

#include "util/system/windows_api.h"

#include <cstring>
#include <malloc.h>

#ifndef __x86_64__
#error "the guarded call is written for 64-bit Windows"
#endif

// What __try and __except make of a function, written out because g++ has neither: a frame whose unwind data
// names the run-time library's C handler with one scope. The system asks the filter while the faulting stack
// still stands, then unwinds to the label behind the scope. The frame saves no register and keeps none across
// the call, so nothing can be wrong there: to its caller it is a call that returned. The filter leaves the
// exception's code in the 8 bytes of the frame above the callee's home space.
//
// 40 bytes are the 32 of home space that a callee may use, and 8 that keep the stack at a multiple of 16. The
// nop behind the call is there for the return address: the unwinder looks for the scope that holds it, and
// without the nop it would lie just behind the scope.
extern "C" unsigned velmoxGuardedCall(void (*body)(void *), void *argument);

asm(R"(
    .text
    .p2align 4
    .globl velmoxGuardedCall
    .def velmoxGuardedCall; .scl 2; .type 32; .endef
    .seh_proc velmoxGuardedCall
velmoxGuardedCall:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
.LvelmoxGuardBegin:
    movq %rcx, %rax
    movq %rdx, %rcx
    call *%rax
    nop
.LvelmoxGuardEnd:
    xorl %eax, %eax
    addq $40, %rsp
    ret
.LvelmoxGuardCaught:
    movl 32(%rsp), %eax
    addq $40, %rsp
    ret
    .seh_handler __C_specific_handler, @except
    .seh_handlerdata
    .long 1
    .rva .LvelmoxGuardBegin, .LvelmoxGuardEnd, velmoxGuardFilter, .LvelmoxGuardCaught
    .text
    .seh_endproc
)");

namespace {

/// C++ exceptions of the GNU run-time travel as structured ones with codes of the form 0x2?474343: "GCC" in
/// the low bytes, and what is thrown, unwound or forced in the digit (unwind-seh.c of libgcc).
bool isCxxException(DWORD code)
{
    return (code & 0xF0FFFFFFu) == 0x20474343u;
}

} // namespace

extern "C" __attribute__((used)) LONG velmoxGuardFilter(EXCEPTION_POINTERS *exception, char *frame)
{
    constexpr std::size_t kCodeAt = 32;
    const DWORD code = exception->ExceptionRecord->ExceptionCode;
    if (isCxxException(code)) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    // RaiseException takes any code, also the 0 that says here that nothing happened.
    const DWORD nonzero = code != 0 ? code : 1;
    std::memcpy(frame + kCodeAt, &nonzero, sizeof nonzero);
    return EXCEPTION_EXECUTE_HANDLER;
}

namespace velmox {

void callGuarded(void (*body)(void *), void *argument)
{
    const unsigned code = velmoxGuardedCall(body, argument);
    if (code == static_cast<unsigned>(EXCEPTION_STACK_OVERFLOW)) {
        // The guard page is gone; without it the next overflow would end the process.
        _resetstkoflw();
    }
    if (code != 0) {
        throw StructuredException(code);
    }
}

} // namespace velmox
