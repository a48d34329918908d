#pragma once

#include "pipeline/input/rules/stanza_configuration.h"
#include "util/text/base_exception.h"
#include "util/text/str.h"

#include <cstdint>
#include <optional>

namespace velmox {

/// What a recording is to be, and when it ends by itself; zeros for no such end.
struct RecordOptions
{
    Str file;
    std::uint64_t seconds = 0;
    std::uint64_t megabytes = 0;
    /// Beside a monitor that has the device: its driver is neither asked for anything nor removed.
    bool isShared = false;
    /// The driver is asked for what these ask for; for everything without.
    std::optional<Stanzas> stanzas;
};

/// A recording that ended before its time. What was recorded can be read.
class RecordingFailure : public BaseException
{
public:
    using BaseException::BaseException;
};

/// Records until the end that the options name, or until Ctrl-C, and tells of it on standard error. The
/// driver is installed where it is not yet, and then removed in the end.
///
/// A capture that is there is replaced, any other file refused. Throws RecordingFailure when it has begun and
/// cannot go on, any other exception when it cannot begin. Main thread only, once in a process.
void record(const RecordOptions &options);

} // namespace velmox
