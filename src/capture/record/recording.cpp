#include "capture/record/recording.h"

#include "util/text/platform.h"

namespace velmox {

void Recording::take(std::span<const unsigned char> records, std::uint32_t lostReads)
{
    facts_.time = platform::systemTime();
    facts_.tickCount = machine_.tickCount();
    facts_.lostReads = lostReads;
    facts_.offsets.clear();
    facts_.statuses.clear();
    facts_.created.clear();
    std::uint64_t count = 0;
    for (std::span<const unsigned char> rest = records; !rest.empty(); ++count) {
        const std::size_t length = wholeRecordBytes(rest);
        if (length == 0) {
            throw CaptureException("the driver wrote a record that is longer than its buffer");
        }
        ask(MonitorRecord(rest.data()));
        rest = rest.subspan(length);
    }
    // Once all of them were found whole: a buffer that is wrong leaves the file as it was, with whole blocks.
    writer_.write(facts_, records);
    totals_.records += count;
    totals_.lostReads += lostReads;
}

void Recording::end(std::uint32_t lostReads)
{
    totals_.time = platform::systemTime();
    totals_.lostReads += lostReads;
    writer_.write(totals_);
}

void Recording::ask(const MonitorRecord &record)
{
    askTime(record.timestamp());
    if (record.recordClass() == kRegistryRecord) {
        askStatus(record.status());
    } else if (record.recordClass() == kProcessRecord && record.operation() == kProcessCreated) {
        askImage(record.pid());
    }
}

void Recording::askTime(std::uint64_t timestamp)
{
    const std::uint64_t second = timestamp / Timeval::kTicksPerSecond;
    if (second == lastSecond_) {
        return;
    }
    lastSecond_ = second;
    // At the full second: zones change at full seconds, so the difference holds for all of it.
    const Timeval utc(second * Timeval::kTicksPerSecond);
    Timeval local;
    const bool isKnown = machine_.localTime(utc, local);
    facts_.offsets.push_back({second, isKnown ? static_cast<std::int64_t>(local.ticks() - utc.ticks())
                                              : CapturedOffset::kNoLocalTime});
}

void Recording::askStatus(std::uint32_t status)
{
    // Nearly all operations succeed: the status is the one before, and need not be looked up.
    if (status == lastStatus_ && !knownStatuses_.empty()) {
        return;
    }
    lastStatus_ = status;
    if (knownStatuses_.insert(status).second) {
        facts_.statuses.push_back({status, statusTexts_.text(status)});
    }
}

void Recording::askImage(std::uint32_t pid)
{
    // At once, as the process may be gone at the next question. The monitor asks at the same place.
    char16_t image[kImageUnits];
    const bool isKnown = machine_.processImage(pid, image);
    facts_.created.push_back({pid, isKnown ? image : u""});
}

} // namespace velmox
