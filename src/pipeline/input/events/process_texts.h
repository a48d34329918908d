#pragma once

#include "pipeline/input/rules/drive_map.h"
#include "util/text/str.h"

#include <cstdint>
#include <unordered_map>

namespace velmox {

/// How a process is called in the filters and in events.
struct ProcessText
{
    /// For the filters: its image path in lower case, empty for an unknown process.
    Str folded;
    /// For events: its image path with the drive for the device, or "N/A".
    Str displayed;
};

/// The texts of the processes that the process table knows, each made once as long as the table stays as it
/// is. Main thread only.
class ProcessTexts
{
public:
    explicit ProcessTexts(DriveMap &drives) : drives_(drives) {}

    /// Of an unknown process too. Holds until the next call.
    const ProcessText &of(std::uint32_t pid);

private:
    DriveMap &drives_;
    std::unordered_map<std::uint32_t, ProcessText> texts_;
    // The table's, when they were made.
    std::uint64_t version_ = 0;
};

} // namespace velmox
