#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/registry/reg_key.h"
#include "pipeline/input/rules/hive_names.h"

namespace velmox {

namespace {

// The name in messages, see diagnostics.h.
constexpr char kFunction[] = "WinRegistryMonitor::initHiveNameKeyMap";

} // namespace

void HiveNames::initHiveNameKeyMap()
{
    if (!hiveKeyMap_.empty()) {
        monitorLog.debug("%s The hive key map has already been initialized.", kFunction);
        return;
    }
    // Not HKEY_CURRENT_USER, a predefined value that is no handle of the kernel's and so has no name to ask
    // for. The key stays open for the life of the process.
    HKEY user = nullptr;
    if (RegOpenCurrentUser(KEY_READ, &user) != ERROR_SUCCESS) {
        return;
    }
    const NtQueryObject query = findNtQueryObject();
    if (query == nullptr) {
        monitorLog.error("%s: Failed to get NtQueryObject function pointer from ntdll.dll: '%m'", kFunction);
        return;
    }
    WideStr userPath;
    if (queryName(query, user, userPath)) {
        fill(userPath);
    }
}

std::uint32_t HiveNames::systemControlSet()
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

} // namespace velmox
