#pragma once

#include "util/text/pathname.h"

namespace velmox {

/// The small files that remember what a baseline did, one value each, in one directory that the server
/// provides.
///
/// A value is the file's plain bytes, without a line end. Failures are logged to `monitorLog`; a missing file
/// on a first run is logged too, and is no fault.
class BaselineCheckPoint
{
public:
    /// `directory` ends in a backslash.
    void setDirectory(Pathname directory) { directory_ = std::move(directory); }

    /// The file's first line; false when there is no such file or the line is empty.
    bool gotCheckpoint(const Str &name, Str &value) const;
    bool setCheckpoint(const Str &name, const Str &value) const;
    /// Writes the present time to `kLastTimeRun`.
    bool setLastTimeRun() const;

private:
    Pathname pathOf(const Str &name) const { return directory_.concat(name); }

    Pathname directory_;
};

/// Seconds since 1970; 0 before that.
long long secondsSinceEpoch();

/// The file that holds the time of the last run, in seconds since 1970.
inline constexpr char kLastTimeRun[] = "last_time_run";
/// The file that says that a walk was completed; spelt so on every disk that has one.
inline constexpr char kCompleted[] = "comleted";

} // namespace velmox
