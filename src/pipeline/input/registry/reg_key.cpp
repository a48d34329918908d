#include "pipeline/input/registry/reg_key.h"

#include "util/log/logger.h"

#include <vector>

namespace velmox {

namespace {

Logger registryLog("WinRegistryApi");

} // namespace

RegKey::RegKey(HKEY rootKey, WideStr rootName, WideStr keyName, WideStr subKey)
    : rootKey_(rootKey), keyName_(std::move(keyName)), rootName_(std::move(rootName)),
      subKey_(std::move(subKey))
{
}

bool RegKey::open(REGSAM access)
{
    HKEY opened = nullptr;
    const LSTATUS result =
        RegOpenKeyExW(rootKey_, subKey_.empty() ? nullptr : asWide(subKey_), 0, access, &opened);
    if (result != ERROR_SUCCESS) {
        // The registry's calls return their code; the message takes its text from the last error.
        SetLastError(static_cast<DWORD>(result));
        registryLog.error("%s - RegOpenKeyExW returned error %d: %m", "RegKey::open",
                          static_cast<int>(result));
        return false;
    }
    handle_.reset(opened);
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
