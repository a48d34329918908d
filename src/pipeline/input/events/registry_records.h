#pragma once

#include "pipeline/input/events/event_emitter.h"
#include "pipeline/input/events/record_at_hand.h"
#include "pipeline/input/events/record_clock.h"
#include "pipeline/input/events/status_texts.h"
#include "pipeline/input/rules/monitor_rules.h"

namespace velmox {

/// Decides on records of registry operations, and renders those that go out: in this order, as most records
/// end at the filters. Main thread only; the objects passed in must outlive this one.
class RegistryRecords
{
public:
    RegistryRecords(MonitorRules &rules, const HiveNames &hiveNames, StatusTexts &statusTexts,
                    RecordClock &clock, EventEmitter &emitter)
        : rules_(rules), hiveNames_(hiveNames), statusTexts_(statusTexts), clock_(clock), emitter_(emitter)
    {
    }

    /// Counts the events that were written, in `registry_evt_accepted`.
    void take(RecordAtHand &record);

private:
    /// `word` is that of the operation, as filters know it.
    bool passes(RecordAtHand &record, const Str &word);
    void emit(RecordAtHand &record, const char *registryType);
    /// Replaces `body` by the lines of the event below its time.
    void render(RecordAtHand &record, const char *registryType, Str &body);

    MonitorRules &rules_;
    const HiveNames &hiveNames_;
    StatusTexts &statusTexts_;
    RecordClock &clock_;
    EventEmitter &emitter_;
    // The body of the event that is being rendered; it keeps its memory.
    Str body_;
};

} // namespace velmox
