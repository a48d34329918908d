#pragma once

#include "util/crash/crash_sink.h"
#include "util/system/owned_handle.h"
#include "util/text/pathname.h"

namespace velmox {

/// The name of a crash log up to its time: the program's path with '.', ':' and '\' as '_', in the folder.
Pathname crashFileStem(const Pathname &folder);

/// The file of one crash report, named by its stem and the local time; without a stem, or when the file
/// cannot be made, standard error takes its place. Nothing is buffered.
class CrashFile : public LimitedCrashSink
{
public:
    CrashFile(const char16_t *stem, const SYSTEMTIME &localTime);

    /// Null while standard error stands in.
    const wchar_t *path() const { return file_.isValid() ? path_ : nullptr; }

private:
    static constexpr std::size_t kMostPathUnits = 1024;

    void put(const char *bytes, std::size_t length) override;

    wchar_t path_[kMostPathUnits];
    FileHandle file_;
};

} // namespace velmox
