#include "pipeline/input/baseline/baseline_checkpoint.h"

#include "pipeline/input/diagnostics/monitor_log.h"
#include "util/files/open_file.h"
#include "util/system/owned_handle.h"
#include "util/time/timeval.h"

namespace velmox {

bool BaselineCheckPoint::gotCheckpoint(const Str &name, Str &value) const
{
    constexpr char kFunction[] = "BaselineCheckPoint::gotCheckpoint";
    const Pathname path = pathOf(name);
    // Made ahead of the calls that can fail, so that nothing stands between a failure and its message.
    const Str shown = path.toStr();
    FileStar file = openFile(path, "r");
    if (!file.isOpen()) {
        monitorLog.error("%s: Unable to open checkpoint file='%s': '%m'", kFunction, shown.c_str());
        return false;
    }
    if (!file.readLine(value) || value.empty()) {
        monitorLog.debug("%s: Unable to read checkpoint file='%s': '%m'", kFunction, shown.c_str());
        return false;
    }
    return true;
}

bool BaselineCheckPoint::setCheckpoint(const Str &name, const Str &value) const
{
    constexpr char kFunction[] = "BaselineCheckPoint::setCheckpoint";
    const Pathname path = pathOf(name);
    // Made ahead of the calls that can fail, so that nothing stands between a failure and its message.
    const Str shown = path.toStr();
    const FileHandle file(CreateFileW(asWide(path.c_str()), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid()) {
        monitorLog.error("%s: Unable to open checkpoint file='%s' for write: '%m'", kFunction, shown.c_str());
        return false;
    }
    DWORD written = 0;
    if (!WriteFile(file.get(), value.data(), static_cast<DWORD>(value.size()), &written, nullptr)) {
        monitorLog.error("%s: Unable to write to checkpoint file='%s': '%m'", kFunction, shown.c_str());
        return false;
    }
    return true;
}

bool BaselineCheckPoint::setLastTimeRun() const
{
    return setCheckpoint(kLastTimeRun, Str::fromFormat("%lld", secondsSinceEpoch()));
}

long long secondsSinceEpoch()
{
    return Timeval::now().toUnixSeconds();
}

} // namespace velmox
