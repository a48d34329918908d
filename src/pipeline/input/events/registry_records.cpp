#include "pipeline/input/events/registry_records.h"

#include "pipeline/input/diagnostics/trace.h"
#include "pipeline/input/driver/shared_state.h"
#include "pipeline/input/events/record_processor.h"
#include "pipeline/input/events/value_rendering.h"
#include "pipeline/input/rules/registry_operations.h"

namespace velmox {

namespace {

// The name in traces, see diagnostics.h.
constexpr char kFunction[] = "WinRegistryMonitor::processData";

/// Appends a line `name="value"`. The value ends at its first NUL, as where it is printed by a format.
void appendLine(Str &body, std::string_view name, std::string_view value)
{
    body.append(name).append("=\"").append(value.substr(0, value.find('\0'))).append("\"\n");
}

} // namespace

void RegistryRecords::take(RecordAtHand &record)
{
    const RegistryOperation &operation = registryOperation(record.fields().operation());
    // Asked here as well, or the texts of the message would be made for each record.
    if (trace::isOn(trace::Message::RegistryRecord)) {
        trace::monitor(trace::Message::RegistryRecord, kFunction, record.tracedKeyPath(), operation.name,
                       record.process().folded);
    }
    if (!passes(record, operation.word)) {
        trace::monitor(trace::Message::RegistryRecordDropped, kFunction);
        return;
    }
    emit(record, operation.name);
    ++registry_evt_accepted;
}

bool RegistryRecords::passes(RecordAtHand &record, const Str &word)
{
    MonitorFilterGroup *group = rules_.registryGroup();
    // The process as a question: the table is asked only where some filter has to know it.
    return group != nullptr && group->filters->matches(record.keyPath(), word, [&record]() -> const Str & {
        return record.process().folded;
    }) == group->inclusive;
}

void RegistryRecords::emit(RecordAtHand &record, const char *registryType)
{
    render(record, registryType, body_);
    trace::monitor(trace::Message::RegistryEvent, kFunction, body_);
    // By the path as the kernel spells it, so a pattern that names the current control set finds no stanza
    // here, and the event goes out without stanza and index.
    const SystemMonitoringConfig *config = rules_.registryGroup()->stanzaOf(record.foldedName());
    static const Str kNone;
    emitter_.emitEvent(body_, config != nullptr ? config->index : kNone,
                       config != nullptr ? config->name : kNone, clock_.time());
}

void RegistryRecords::render(RecordAtHand &record, const char *registryType, Str &body)
{
    const MonitorRecord &fields = record.fields();
    // As the kernel spells it, but for the root: the filters saw it folded.
    Str keyText = record.nameText();
    hiveNames_.shortenHiveRoot(keyText);
    Str dataText;
    renderValueData(fields.operation(), fields.dataType(), fields.data(), fields.dataBytes(), dataText);
    body.clear();
    appendLine(body, "event_status", statusTexts_.text(fields.status()));
    body.append("pid=");
    body << static_cast<int>(fields.pid());
    body.push_back('\n');
    appendLine(body, "process_image", record.process().displayed);
    appendLine(body, "registry_type", registryType);
    appendLine(body, "key_path", keyText);
    appendLine(body, "data_type", dataTypeName(fields.operation(), fields.dataType()));
    appendLine(body, "data", dataText);
}

} // namespace velmox
