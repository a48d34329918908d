#include "pipeline/input/events/record_processor.h"

#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/xml/wide_text.h"

namespace velmox {

namespace {

constexpr char kFunction[] = "WinRegistryMonitor::processData";

// How a key of the current control set reads to the filters.
constexpr std::string_view CURRENT_CONTROL_SET = "\\REGISTRY\\MACHINE\\SYSTEM\\CURRENTCONTROLSET";

} // namespace

void RecordProcessor::processData(const unsigned char *buffer, std::uint32_t bytes)
{
    trace::monitor(trace::Kind::Entry, 39, kFunction);
    std::uint32_t cursor = 0;
    while (cursor < bytes) {
        const MonitorRecord record(buffer + cursor);
        cursor += record.length();
        prepare(record);
        switch (record.recordClass()) {
        case kRegistryRecord:
            onRegistryRecord(record);
            break;
        case kProcessRecord:
            onProcessRecord(record);
            break;
        case kImageRecord:
            onImageRecord(record);
            break;
        }
    }
}

// What every record needs, whatever its class.
void RecordProcessor::prepare(const MonitorRecord &record)
{
    name_ = wideTextAt(record.name(), record.nameUnits(), nameRoom_);
    trace::monitor(trace::Kind::Entry, 40, kFunction, {name_.data(), name_.size() + 1});
    rawPath_.clear();
    rawPath_.appendUtf16(name_.data(), name_.size());
    makeKeyPath();
    imageKnown_ = ProcessImageTable::instance().lookup(record.pid(), imageBuffer_, kImageUnits);
    processImage_.clear();
    if (imageKnown_) {
        processImage_.appendUtf16(imageBuffer_);
    }
    eventTime_ = clock_.timeOf(record.timestamp());
}

// The key path for the filters. A pattern that names the current control set has to meet the numbered one
// that the kernel reports.
void RecordProcessor::makeKeyPath()
{
    const Str &current = hiveNames_.currentControlSetPath();
    if (current.empty()) {
        keyPath_ = rawPath_;
        return;
    }
    keyPath_.clear();
    rawPath_.toLower(keyPath_);
    if (keyPath_.startsWith(current)) {
        keyPath_.replace(0, current.size(), CURRENT_CONTROL_SET);
    }
}

bool RecordProcessor::passes(const Str &groupName, const Str &process, const Str &keyPath,
                             std::string_view type)
{
    MonitorFilterGroup *group = rules_.group(groupName);
    if (group == nullptr) {
        return false;
    }
    event_.process.clear();
    process.toLower(event_.process);
    event_.keyPath.clear();
    keyPath.toLower(event_.keyPath);
    event_.type.assign(type);
    return group->passes(event_);
}

} // namespace velmox
