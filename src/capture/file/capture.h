#pragma once

#include "pipeline/input/driver/driver_protocol.h"
#include "pipeline/input/rules/drive_map.h"
#include "util/text/base_exception.h"
#include "util/text/str.h"

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

// The room `file`: what a capture holds, and how it stands in a file. Whoever replays or sums up a capture
// reads it by a `CaptureReader` and needs nothing of the machine that it comes from.
//
// A file is its head and then blocks: one `CaptureStart`, a `BufferFacts` with its records for each buffer
// that the driver filled, and a `CaptureEnd`. docs/formats.md has the bytes.
namespace velmox {

/// A capture can't be read, or not be made; in a clause for people, behind the name of the file or block.
class CaptureException : public BaseException
{
public:
    using BaseException::BaseException;
};

/// A process and its image as the system tells it, mostly in device form. For a process just created an empty
/// image says that the system would not tell.
struct CapturedProcess
{
    std::uint32_t pid = 0;
    std::u16string image;
};

/// Recorded once, before the first read.
struct CaptureStart
{
    /// The moment, UTC in 100-nanosecond units since 1 January 1601.
    std::uint64_t time = 0;
    /// What the driver was asked for; all zeros beside a monitor, which had asked for something that is not
    /// known.
    MonitorFilterConfig filter = {};
    /// Native path of the current user's root; empty where the system does not tell it.
    std::u16string userPath;
    /// Number of the control set in use.
    std::uint32_t controlSet = 1;
    DriveMappings drives;
    /// In the order in which the process table learns them: of two with one number the later one counts.
    std::vector<CapturedProcess> processes;
};

/// How the machine's local time differs from UTC at all moments of one second.
struct CapturedOffset
{
    static constexpr std::int64_t kNoLocalTime = std::numeric_limits<std::int64_t>::min();

    /// Since 1 January 1601 UTC.
    std::uint64_t second = 0;
    /// Local time less UTC, in 100-nanosecond units; or `kNoLocalTime` where the system has none.
    std::int64_t ticks = 0;
};

/// The text of a kernel status as events show it: `(0)Success.`
struct CapturedStatus
{
    std::uint32_t status = 0;
    Str text;
};

/// What was asked of the machine when a buffer of the driver came in.
struct BufferFacts
{
    /// The moment, as in `CaptureStart`.
    std::uint64_t time = 0;
    /// Milliseconds since the machine's start, as the system counts them in 32 bits.
    std::uint32_t tickCount = 0;
    /// Buffers that were read and dropped for want of memory between the one before and this one.
    std::uint32_t lostReads = 0;
    /// For each second that a record of this buffer lies in, unless the record before it lies in the same.
    std::vector<CapturedOffset> offsets;
    /// Of the registry records in the buffer, those that no buffer before had.
    std::vector<CapturedStatus> statuses;
    /// One for each process record that reports a creation, in their order.
    std::vector<CapturedProcess> created;
};

/// A buffer as it is read back.
struct CapturedBuffer
{
    BufferFacts facts;
    /// Whole records back to back, their sizes checked; never read past. Holds until the next one is read.
    std::span<const unsigned char> records;
    std::size_t recordCount = 0;
};

/// Length of the record that the bytes begin with, or 0 if they hold none that is whole: for bytes that the
/// driver may not have written.
std::size_t wholeRecordBytes(std::span<const unsigned char> bytes);

/// Totals, written when a recording ends by itself.
struct CaptureEnd
{
    std::uint64_t time = 0;
    std::uint64_t records = 0;
    /// All of them, those behind the last buffer included.
    std::uint64_t lostReads = 0;
};

} // namespace velmox
