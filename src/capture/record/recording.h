#pragma once

#include "capture/file/capture_writer.h"
#include "pipeline/input/events/machine.h"
#include "pipeline/input/events/status_texts.h"

#include <unordered_set>

// The room `record`: what the driver reports goes into a file, together with what the machine says of it at
// that moment.
namespace velmox {

/// Writes the driver's buffers as they come, each with the machine's answers to all that its rendering may
/// ask: local times, texts of statuses, images of processes. They are asked at once, as the monitor asks
/// them: later the process has ended, and the zone may be another one. For one thread; the objects passed in
/// must outlive this one.
class Recording
{
public:
    Recording(Machine &machine, StatusTexts &statusTexts, CaptureWriter &writer)
        : machine_(machine), statusTexts_(statusTexts), writer_(writer)
    {
    }

    /// Takes a buffer that came in just now, and how many reads were dropped since the last one. Throws
    /// CaptureException when the driver's sizes are wrong.
    void take(std::span<const unsigned char> records, std::uint32_t lostReads);
    /// Writes the totals, with the reads that were dropped since the last buffer.
    void end(std::uint32_t lostReads);

    std::uint64_t records() const { return totals_.records; }
    std::uint64_t lostReads() const { return totals_.lostReads; }

private:
    // Each asks the machine what the replay of a record will ask, and puts the answer into `facts_`, unless
    // it stands in the file already.
    void ask(const MonitorRecord &record);
    void askTime(std::uint64_t timestamp);
    void askStatus(std::uint32_t status);
    void askImage(std::uint32_t pid);

    Machine &machine_;
    StatusTexts &statusTexts_;
    CaptureWriter &writer_;
    CaptureEnd totals_;
    // Of the buffer at hand; keeps its memory.
    BufferFacts facts_;
    std::uint64_t lastSecond_ = ~std::uint64_t{0};
    std::unordered_set<std::uint32_t> knownStatuses_;
    std::uint32_t lastStatus_ = 0;
};

} // namespace velmox
