#pragma once

#include "capture/file/capture.h"
#include "capture/replay/asked_records.h"
#include "capture/replay/recorded_machine.h"
#include "pipeline/input/events/record_processor.h"
#include "pipeline/input/rules/stanza_configuration.h"

#include <cstdio>

// The room `replay`: the monitor's stream of a capture, made by the monitor's own rooms from what the machine
// said when it was recorded.
namespace velmox {

/// Writes the stream that the monitor would have written, had it read a capture's buffers and been given
/// these stanzas. It has no baseline, which is no matter of the driver.
///
/// One at a time in a process, as there is one table of processes. The stream ends with the object.
class CaptureReplay
{
public:
    /// `out` passes bytes as they are and is not closed. Throws RegexException for a pattern that does not
    /// compile, and CaptureException without an enabled stanza.
    CaptureReplay(const CaptureStart &start, const Stanzas &stanzas, const StanzaDefaults &defaults,
                  std::FILE *out);
    ~CaptureReplay();
    CaptureReplay(const CaptureReplay &) = delete;
    CaptureReplay &operator=(const CaptureReplay &) = delete;

    void take(const CapturedBuffer &buffer);

    /// Whether the stanzas ask for operations or hives that were not recorded.
    bool isIncomplete() const { return asked_.isIncomplete(); }

private:
    MonitorFilterConfig configure(const CaptureStart &start, const Stanzas &stanzas,
                                  const StanzaDefaults &defaults);

    RecordedMachine machine_;
    HiveNames hiveNames_;
    MonitorRules rules_;
    StatusTexts statusTexts_;
    AskedRecords asked_;
    EventEmitter emitter_;
    RecordProcessor records_;
};

} // namespace velmox
