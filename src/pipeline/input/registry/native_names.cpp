#include "pipeline/input/registry/native_names.h"

#include "util/system/library_routine.h"

#include <memory>

namespace velmox {

namespace {

// The class ObjectNameInformation: a UNICODE_STRING and behind it the text.
constexpr ULONG kObjectNameInformation = 1;
constexpr LONG kInfoLengthMismatch = static_cast<LONG>(0xC0000004);

struct CountedName
{
    USHORT length;
    USHORT maximumLength;
    const char16_t *text;
};

struct VirtualMemoryDeleter
{
    void operator()(void *memory) const { VirtualFree(memory, 0, MEM_RELEASE); }
};

} // namespace

NtQueryObject findNtQueryObject()
{
    NtQueryObject routine = nullptr;
    if (const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll")) {
        findRoutine(ntdll, "NtQueryObject", routine);
    }
    return routine;
}

bool queryName(NtQueryObject query, HANDLE object, WideStr &name)
{
    ULONG size = 0;
    if (query(object, kObjectNameInformation, nullptr, 0, &size) != kInfoLengthMismatch) {
        return false;
    }
    const std::unique_ptr<void, VirtualMemoryDeleter> memory(
        VirtualAlloc(nullptr, size, MEM_COMMIT, PAGE_READWRITE));
    if (!memory || query(object, kObjectNameInformation, memory.get(), size, &size) == kInfoLengthMismatch) {
        return false;
    }
    const auto *counted = static_cast<const CountedName *>(memory.get());
    name = WideStr(counted->text, counted->length / sizeof(char16_t));
    return true;
}

} // namespace velmox
