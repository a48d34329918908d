#include "pipeline/input/events/record_processor.h"

#include "pipeline/input/diagnostics/trace.h"

namespace velmox {

namespace {

// The name in traces, see diagnostics.h.
constexpr char kFunction[] = "WinRegistryMonitor::processData";

} // namespace

void RecordProcessor::processData(const unsigned char *buffer, std::uint32_t bytes)
{
    trace::monitor(trace::Message::ProcessDataEntered, kFunction);
    std::uint32_t cursor = 0;
    while (cursor < bytes) {
        const MonitorRecord fields(buffer + cursor);
        // Known before the record is looked at: of a class that is not known nothing but its size is needed.
        cursor += fields.length();
        record_.take(fields);
        trace::monitor(trace::Message::RecordEntered, kFunction,
                       {record_.name().data(), record_.name().size() + 1});
        // Of every record, also of those that are dropped: an event's time depends on what came before it.
        clock_.note(fields.timestamp());
        dispatch(record_);
    }
}

void RecordProcessor::dispatch(RecordAtHand &record)
{
    switch (record.fields().recordClass()) {
    case kRegistryRecord:
        registry_.take(record);
        break;
    case kProcessRecord:
        process_.takeProcess(record);
        break;
    case kImageRecord:
        process_.takeImage(record);
        break;
    }
}

} // namespace velmox
