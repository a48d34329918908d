#include "pipeline/input/events/process_enumeration.h"

#include "pipeline/input/diagnostics/diagnostics.h"
#include "util/system/owned_handle.h"

#include <psapi.h>
#include <tlhelp32.h>

namespace velmox {

namespace {

// 256 process numbers. Those of a machine that runs more become known by their image records.
constexpr DWORD kIdBytes = 1024;

/// The first choice, as it names all processes: also those that this one may not open.
bool enumerateSnapshot(const ProcessSeen &seen)
{
    const FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W process = {};
    process.dwSize = sizeof process;
    if (!snapshot.isValid() || !Process32FirstW(snapshot.get(), &process)) {
        return false;
    }
    do {
        char16_t image[kImageUnits];
        const bool known = queryProcessImage(process.th32ProcessID, image);
        seen(process.th32ProcessID, known ? image : asUtf16(process.szExeFile));
    } while (Process32NextW(snapshot.get(), &process));
    return true;
}

/// Where no snapshot can be had. It tells numbers alone, so a process that cannot be opened has no name to
/// be told by.
void enumerateIds(const ProcessSeen &seen)
{
    const LocalMemory memory(LocalAlloc(LMEM_FIXED, kIdBytes));
    if (!memory.isValid()) {
        return;
    }
    auto *ids = static_cast<DWORD *>(memory.get());
    DWORD bytes = 0;
    if (!EnumProcesses(ids, kIdBytes, &bytes)) {
        const auto error = static_cast<int>(GetLastError());
        monitorLog.error("%s: Enum processes failed: '(%d)%m'", "WinRegistryMonitor::ProcessEnumeration",
                         error);
        return;
    }
    for (DWORD at = 0; at < bytes / sizeof *ids; ++at) {
        char16_t image[kImageUnits];
        if (queryProcessImage(ids[at], image)) {
            seen(ids[at], image);
        }
    }
}

} // namespace

bool queryProcessImage(std::uint32_t pid, char16_t *out)
{
    // In device form, like the paths in the driver's records, so that all compare with the same patterns.
    const KernelHandle process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, pid));
    return process.isValid() &&
           GetProcessImageFileNameW(process.get(), reinterpret_cast<wchar_t *>(out), kImageUnits) != 0;
}

void enumerateProcesses(const ProcessSeen &seen)
{
    if (!enumerateSnapshot(seen)) {
        enumerateIds(seen);
    }
}

} // namespace velmox
