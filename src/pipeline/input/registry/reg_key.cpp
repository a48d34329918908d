#include "pipeline/input/registry/reg_key.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "util/system/windows_api.h"

#include <memory>
#include <vector>

namespace velmox {

namespace {

// The class ObjectNameInformation: a UNICODE_STRING and behind it the text. The first call, without room,
// gives STATUS_INFO_LENGTH_MISMATCH and the size. (Windows, ZwQueryObject and ntstatus.h.)
constexpr ULONG kObjectNameInformation = 1;
constexpr LONG kInfoLengthMismatch = static_cast<LONG>(0xC0000004);

/// A UNICODE_STRING: lengths in bytes, without a NUL.
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

LSTATUS openKey(HKEY parent, const wchar_t *path, REGSAM access, RegistryKeyHandle &key)
{
    HKEY opened = nullptr;
    const LSTATUS result = RegOpenKeyExW(parent, path, 0, access, &opened);
    if (result == ERROR_SUCCESS) {
        key.reset(opened);
    }
    return result;
}

NtQueryObject findNtQueryObject()
{
    NtQueryObject routine = nullptr;
    // It is in every process from the start to the end, so nothing has to be loaded or freed.
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
    // Fresh memory is all zeros: a second call that failed in another way leaves a name of no length.
    const auto *counted = static_cast<const CountedName *>(memory.get());
    name = WideStr(counted->text, counted->length / sizeof(char16_t));
    return true;
}

RegKey::RegKey(HKEY rootKey, WideStr rootName, WideStr keyName, WideStr subKey)
    : rootKey_(rootKey), keyName_(std::move(keyName)), rootName_(std::move(rootName)),
      subKey_(std::move(subKey))
{
}

bool RegKey::open(REGSAM access)
{
    const LSTATUS result = openKey(rootKey_, subKey_.empty() ? nullptr : asWide(subKey_), access, handle_);
    if (result != ERROR_SUCCESS) {
        // The registry's calls return their code; the message takes its text from the last error.
        SetLastError(static_cast<DWORD>(result));
        registryLog.error("%s - RegOpenKeyExW returned error %d: %m", "RegKey::open",
                          static_cast<int>(result));
        return false;
    }
    return true;
}

bool RegKey::queryHiveInfo(DWORD &subKeyCount, DWORD &maxSubKeyLength) const
{
    const LSTATUS result =
        RegQueryInfoKeyW(handle(), nullptr, nullptr, nullptr, &subKeyCount, &maxSubKeyLength, nullptr,
                         nullptr, nullptr, nullptr, nullptr, nullptr);
    if (result != ERROR_SUCCESS) {
        registryLog.error("RegQueryInfoKeyW failed for %s in %s with error 0x%x",
                          Str::fromUtf16(keyName_).c_str(), Str::fromUtf16(rootName_).c_str(),
                          static_cast<unsigned>(result));
        return false;
    }
    return true;
}

bool RegKey::enumKeyAtIndex(DWORD index, DWORD nameLength, Str &out) const
{
    // One unit more than the registry hears of, so that whatever it leaves there ends in a NUL.
    std::vector<wchar_t> name(std::size_t{nameLength} + 1);
    const LSTATUS result =
        RegEnumKeyExW(handle(), index, name.data(), &nameLength, nullptr, nullptr, nullptr, nullptr);
    if (result != ERROR_SUCCESS && result != ERROR_MORE_DATA) {
        registryLog.error("RegEnumKeyExW failed for %s in %s with error 0x%x",
                          Str::fromUtf16(keyName_).c_str(), Str::fromUtf16(rootName_).c_str(),
                          static_cast<unsigned>(result));
        return false;
    }
    out = Str::fromUtf16(asUtf16(name.data()));
    return true;
}

bool RegKey::queryValue(const char16_t *name, DWORD *type, BYTE *data, DWORD *dataLength) const
{
    return RegQueryValueExW(handle(), asWide(name), nullptr, type, data, dataLength) == ERROR_SUCCESS;
}

} // namespace velmox
