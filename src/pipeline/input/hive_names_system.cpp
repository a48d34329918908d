#include "pipeline/input/hive_names.h"
#include "pipeline/input/monitor_log.h"
#include "pipeline/input/registry_key_handle.h"

#include <memory>

namespace velmox {

namespace {

constexpr char kFunction[] = "WinRegistryMonitor::initHiveNameKeyMap";

// ntdll.dll's NtQueryObject, class ObjectNameInformation: a UNICODE_STRING and behind it the text.
using NtQueryObject = LONG(WINAPI *)(HANDLE, ULONG informationClass, void *, ULONG size, ULONG *needed);
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

NtQueryObject findNtQueryObject()
{
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    const FARPROC routine = ntdll == nullptr ? nullptr : GetProcAddress(ntdll, "NtQueryObject");
    if (routine == nullptr) {
        monitorLog.error("%s: Failed to get NtQueryObject function pointer from ntdll.dll: '%m'", kFunction);
    }
    return reinterpret_cast<NtQueryObject>(reinterpret_cast<void *>(routine));
}

bool queryName(NtQueryObject query, HANDLE key, WideStr &name)
{
    ULONG size = 0;
    if (query(key, kObjectNameInformation, nullptr, 0, &size) != kInfoLengthMismatch) {
        return false;
    }
    const std::unique_ptr<void, VirtualMemoryDeleter> memory(
        VirtualAlloc(nullptr, size, MEM_COMMIT, PAGE_READWRITE));
    if (!memory || query(key, kObjectNameInformation, memory.get(), size, &size) == kInfoLengthMismatch) {
        return false;
    }
    const auto *counted = static_cast<const CountedName *>(memory.get());
    name = WideStr(counted->text, counted->length / sizeof(char16_t));
    return true;
}

// 1 when the system does not say.
DWORD activeControlSet()
{
    HKEY opened = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\Select", 0, KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS) {
        return 1;
    }
    const RegistryKeyHandle select(opened);
    DWORD current = 1;
    DWORD size = sizeof current;
    const LSTATUS result = RegQueryValueExA(select.get(), "Current", nullptr, nullptr,
                                            reinterpret_cast<BYTE *>(&current), &size);
    return result == ERROR_SUCCESS ? current : 1;
}

} // namespace

void HiveNames::initHiveNameKeyMap()
{
    if (!hiveKeyMap_.empty()) {
        monitorLog.debug("%s The hive key map has already been initialized.", kFunction);
        return;
    }
    // The key stays open for the life of the process.
    HKEY user = nullptr;
    if (RegOpenCurrentUser(KEY_READ, &user) != ERROR_SUCCESS) {
        return;
    }
    const NtQueryObject query = findNtQueryObject();
    WideStr userPath;
    if (query != nullptr && queryName(query, user, userPath)) {
        fill(userPath);
    }
}

void HiveNames::detectCurrentControlSet(const Str &hive)
{
    if (!currentControlSetPath_.empty() || !hive.lowered().contains("system\\\\currentcontrolset")) {
        return;
    }
    currentControlSetPath_ = "\\registry\\machine\\system\\";
    currentControlSetPath_ += activeControlSet() == 1 ? "controlset001" : "controlset002";
}

} // namespace velmox
