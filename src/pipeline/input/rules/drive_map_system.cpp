#include "pipeline/input/rules/drive_map.h"
#include "util/system/windows_api.h"

namespace velmox {

namespace {

// Twenty-six drives take 26 times "C:\" with its NUL, 105 units with the NUL behind all.
constexpr DWORD kDriveStringsUnits = 520;
constexpr DWORD kDeviceUnits = 260;

/// Gathers the drives up to the first whose device the system won't tell.
void readSystemDrives(DriveMappings &out)
{
    wchar_t drives[kDriveStringsUnits];
    const DWORD length = GetLogicalDriveStringsW(kDriveStringsUnits, drives);
    if (length == 0 || length > kDriveStringsUnits) {
        return;
    }
    for (const wchar_t *root = drives; *root != L'\0'; root += wcslen(root) + 1) {
        const wchar_t drive[] = {root[0], L':', L'\0'};
        wchar_t device[kDeviceUnits];
        // The first text of the result is the mapping in force (documentation of QueryDosDevice); earlier
        // ones follow behind its NUL.
        if (QueryDosDeviceW(drive, device, kDeviceUnits) == 0) {
            return;
        }
        out.push_back({Str::fromUtf16(asUtf16(drive)).lowered(), Str::fromUtf16(asUtf16(device)).lowered()});
    }
}

} // namespace

DriveMap &systemDrives()
{
    // Never destroyed: the watch of a parent may end the process while events are on their way.
    static DriveMap &drives = *new DriveMap(readSystemDrives);
    return drives;
}

} // namespace velmox
