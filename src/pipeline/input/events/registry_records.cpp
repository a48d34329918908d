#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/driver/event_counters.h"
#include "pipeline/input/events/record_processor.h"
#include "pipeline/input/events/value_rendering.h"
#include "pipeline/input/rules/drive_map.h"
#include "pipeline/input/rules/registry_operations.h"

namespace velmox {

namespace {

constexpr char kFunction[] = "WinRegistryMonitor::processData";
const Str kGroup = kRegmonFilters;

} // namespace

void RecordProcessor::onRegistryRecord(const MonitorRecord &record)
{
    const RegistryOperation operation = registryOperation(record.operation());
    trace::monitor(trace::Kind::Information, 41, kFunction, keyPath_, operation.name, processImage_);
    if (!passes(kGroup, processImage_, keyPath_, operation.word)) {
        trace::monitor(trace::Kind::Information, 42, kFunction);
        return;
    }
    emitRegistryEvent(record, operation.name);
    ++registry_evt_accepted;
}

void RecordProcessor::emitRegistryEvent(const MonitorRecord &record, const char *registryType)
{
    const char *typeName = dataTypeName(record.operation(), record.dataType());
    Str dataText;
    renderValueData(record.operation(), record.dataType(), record.data(), record.dataBytes(), dataText);
    const Str &statusText = statusTexts_.text(record.status());
    const Str keyText = shortKeyText();
    // The path goes in as the kernel spells it, so a pattern that names the current control set finds no
    // stanza here, and the event goes out without stanza and index.
    Str stanza;
    const Str index = rules_.getIndexAndStanzaForRegmon(rawPath_, stanza);
    const Str imageText = displayed(imageBuffer_);

    Str body;
    body.format("event_status=\"%s\"\npid=%d\nprocess_image=\"%s\"\nregistry_type=\"%s\"\nkey_path=\"%s\"\n"
                "data_type=\"%s\"\ndata=\"%s\"\n",
                statusText.c_str(), static_cast<int>(record.pid()), imageText.c_str(), registryType,
                keyText.c_str(), typeName, dataText.c_str());
    trace::monitor(trace::Kind::Information, 43, kFunction, body);
    emitter_.emitEvent(body, index, stanza, eventTime_);
}

Str RecordProcessor::shortKeyText() const
{
    WideStr path = WideStr::fromUtf8(rawPath_);
    hiveNames_.shortenHiveRoot(path);
    return Str::fromUtf16(path);
}

Str RecordProcessor::displayed(const char16_t *image) const
{
    return deviceToDrive(Str::fromUtf16(image));
}

} // namespace velmox
