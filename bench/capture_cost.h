#pragma once

#include "capture/file/capture_writer.h"
#include "capture/record/recording.h"
#include "capture/replay/capture_replay.h"
#include "testbed/record_builder.h"
#include "util/files/file_star.h"

namespace velmox::bench {

/// Records as they are recorded, in buffers of the size that the driver is first read with. The file is
/// written again and again from its start.
class RecordedRecords
{
public:
    RecordedRecords();

    void take(std::span<const unsigned char> records);

private:
    FileStar sink_;
    CaptureWriter writer_;
    StatusTexts statusTexts_;
    Recording recording_;
};

/// The capture of some records, replayed from memory.
class ReplayedRecords
{
public:
    ReplayedRecords(std::span<const unsigned char> records, const Stanzas &stanzas);

    /// Reads and replays all of them.
    void take();

private:
    std::string capture_;
    FileStar sink_;
    std::unique_ptr<CaptureReplay> replay_;
};

} // namespace velmox::bench
