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
    /// `out` passes bytes as they are and is not closed; null for a stream that is counted alone. Throws
    /// RegexException for a pattern that does not compile, and CaptureException without an enabled stanza.
    CaptureReplay(const CaptureStart &start, const Stanzas &stanzas, const StanzaDefaults &defaults,
                  std::FILE *out);
    ~CaptureReplay();
    CaptureReplay(const CaptureReplay &) = delete;
    CaptureReplay &operator=(const CaptureReplay &) = delete;

    void take(const CapturedBuffer &buffer);
    /// The same in two steps: the facts of a buffer once, and its records, whole ones, in pieces.
    void moveTo(const BufferFacts &facts) { machine_.moveTo(facts, statusTexts_); }
    void take(std::span<const unsigned char> records);

    /// Whether the stanzas ask for operations or hives that were not recorded.
    bool isIncomplete() const { return asked_.isIncomplete(); }
    /// Bytes of the stream so far.
    std::uint64_t writtenBytes() const { return emitter_.writtenBytes(); }

    RecordedMachine &machine() { return machine_; }
    const HiveNames &hiveNames() const { return hiveNames_; }
    MonitorRules &rules() { return rules_; }

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
