#pragma once

#include "pipeline/input/driver/driver_protocol.h"
#include "testbed/record_builder.h"

#include <cwchar>
#include <psapi.h>

namespace velmox::testing {

/// What one read gives: an error, or so many bytes of a record that nobody reports.
struct Answer
{
    DWORD error = 0;
    DWORD bytes = 0;
};

/// Answers the calls that open and use the device as a script says; one at a time.
///
/// Any thread of the program may open or close something of its own meanwhile, and still be on its way
/// through the stand-in when the object has gone: what those two touch lives on.
class ScriptedDevice
{
public:
    ScriptedDevice()
    {
        current = this;
        isClosed = false;
    }
    ~ScriptedDevice() { current = nullptr; }

    /// The errors of the first calls that open it.
    std::vector<DWORD> opens;
    DWORD filterError = 0;
    std::vector<Answer> reads;
    /// What each read leaves in the buffer, whatever length it tells.
    testbed::Bytes record = testbed::recordBytes({.recordClass = 3});
    /// Called by the read that finds the script at its end.
    std::function<void()> atEnd;
    std::vector<DWORD> sizes;
    SIZE_T workingSet = 0;
    /// What each read adds to it.
    SIZE_T growth = 0;
    int memoryQueries = 0;
    DWORD memoryError = 0;
    static inline std::atomic<bool> isClosed = false;

private:
    template <class Function>
    static Function *systemRoutine(const char *name)
    {
        Function *routine = nullptr;
        findRoutine(GetModuleHandleW(L"kernel32.dll"), name, routine);
        return routine;
    }

    static BOOL finish(DWORD error)
    {
        SetLastError(error);
        return error == 0;
    }

    static HANDLE WINAPI open(const wchar_t *name, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES *security,
                              DWORD disposition, DWORD flags, HANDLE model)
    {
        if (std::wcscmp(name, L"\\\\.\\VelmoxTrace") != 0) {
            return systemOpen(name, access, sharing, security, disposition, flags, model);
        }
        EXPECT_EQ(access | sharing, 0u);
        EXPECT_EQ(flags, static_cast<DWORD>(FILE_FLAG_OVERLAPPED));
        if (current->opens.empty()) {
            isClosed = false;
            return deviceHandle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        }
        finish(current->opens.front());
        current->opens.erase(current->opens.begin());
        return INVALID_HANDLE_VALUE;
    }

    static BOOL WINAPI control(HANDLE, DWORD code, void *, DWORD, void *out, DWORD size, DWORD *bytes,
                               OVERLAPPED *)
    {
        if (code == IOCTL_SET_FILTER) {
            return finish(current->filterError);
        }
        EXPECT_EQ(*bytes, 0u);
        current->sizes.push_back(size);
        const std::size_t at = current->sizes.size() - 1;
        if (at >= current->reads.size()) {
            current->atEnd();
            return TRUE;
        }
        std::copy(current->record.begin(), current->record.end(), static_cast<unsigned char *>(out));
        *bytes = current->reads[at].bytes;
        return finish(current->reads[at].error);
    }

    static BOOL WINAPI close(HANDLE handle)
    {
        if (handle == deviceHandle) {
            isClosed = true;
        }
        return systemClose(handle);
    }

    static BOOL WINAPI memory(HANDLE, PROCESS_MEMORY_COUNTERS *counters, DWORD)
    {
        counters->WorkingSetSize = current->workingSet + current->growth * current->sizes.size();
        ++current->memoryQueries;
        return finish(current->memoryError);
    }

    static inline ScriptedDevice *current = nullptr;
    static inline std::atomic<HANDLE> deviceHandle = nullptr;
    // Not by way of the import table, where the stand-ins are.
    static inline const auto systemOpen = systemRoutine<decltype(CreateFileW)>("CreateFileW");
    static inline const auto systemClose = systemRoutine<decltype(CloseHandle)>("CloseHandle");
    const ReplacedCall open_{"CreateFileW", open};
    const ReplacedCall close_{"CloseHandle", close};
    const ReplacedCall control_{"DeviceIoControl", control};
    const ReplacedCall memory_{"K32GetProcessMemoryInfo", memory};
};

} // namespace velmox::testing
