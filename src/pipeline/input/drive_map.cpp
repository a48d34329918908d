#include "pipeline/input/drive_map.h"

#include "util/windows_api.h"

#include <vector>

namespace velmox {

namespace {

// Both lower case.
struct Drive
{
    Str drive;
    Str device;
};

std::vector<Drive> readDrives()
{
    constexpr DWORD kListRoom = 520;
    constexpr DWORD kDeviceRoom = 260;
    std::vector<Drive> drives;
    wchar_t list[kListRoom + 1] = {};
    if (GetLogicalDriveStringsW(kListRoom, list) == 0) {
        return drives;
    }
    for (const wchar_t *at = list; *at != L'\0'; at += wcslen(at) + 1) {
        const wchar_t name[] = {*at, L':', L'\0'};
        wchar_t device[kDeviceRoom];
        if (QueryDosDeviceW(name, device, kDeviceRoom) == 0) {
            break;
        }
        drives.push_back(
            {Str::fromUtf16(asUtf16(name)).lowered(), Str::fromUtf16(asUtf16(device)).lowered()});
    }
    return drives;
}

const std::vector<Drive> &driveMap()
{
    static std::vector<Drive> drives;
    if (drives.empty()) {
        drives = readDrives();
    }
    return drives;
}

} // namespace

Str translateProcessDrive(const Str &proc)
{
    const Str lower = proc.lowered();
    for (const Drive &row : driveMap()) {
        if (lower.startsWith(row.drive)) {
            Str translated = row.device;
            translated.replaceAll("\\", "\\\\");
            return translated.append(proc.view().substr(2));
        }
    }
    return proc;
}

Str deviceToDrive(const Str &path)
{
    const Str lower = path.lowered();
    for (const Drive &row : driveMap()) {
        if (lower.startsWith(row.device)) {
            Str shown = path;
            shown.replace(0, row.device.size(), row.drive);
            return shown;
        }
    }
    return path;
}

} // namespace velmox
