#include "pipeline/input/events/machine.h"
#include "pipeline/input/events/process_enumeration.h"
#include "util/system/windows_api.h"
#include "util/time/calendar.h"

namespace velmox {

namespace {

constexpr std::uint64_t kTicksPerMillisecond = 10'000;

Timeval timevalOfFields(const SYSTEMTIME &time)
{
    const std::int64_t days = calendar::daysSinceEpoch(time.wYear, time.wMonth - 1, time.wDay);
    const std::int64_t seconds =
        ((days * 24 + time.wHour) * 60 + time.wMinute) * 60 + static_cast<std::int64_t>(time.wSecond);
    return Timeval(Timeval::kUnixEpoch + static_cast<std::uint64_t>(seconds) * Timeval::kTicksPerSecond +
                   time.wMilliseconds * kTicksPerMillisecond);
}

class SystemMachine : public Machine
{
public:
    bool localTime(Timeval utc, Timeval &local) override
    {
        const FILETIME fileTime = fileTimeOf<FILETIME>(utc);
        SYSTEMTIME utcFields = {};
        SYSTEMTIME localFields = {};
        // Daylight saving counts as it was at that moment; FileTimeToLocalFileTime would take that of today.
        if (!FileTimeToSystemTime(&fileTime, &utcFields) ||
            !SystemTimeToTzSpecificLocalTime(nullptr, &utcFields, &localFields)) {
            return false;
        }
        local = timevalOfFields(localFields);
        return true;
    }

    bool processImage(std::uint32_t pid, char16_t *out) override { return queryProcessImage(pid, out); }

    std::uint32_t tickCount() const override { return GetTickCount(); }

    DriveMap &drives() override { return systemDrives(); }
};

} // namespace

Machine &systemMachine()
{
    static Machine &machine = *new SystemMachine;
    return machine;
}

} // namespace velmox
