#pragma once

#include "capture/file/capture.h"
#include "capture/replay/asked_records.h"
#include "pipeline/input/events/machine.h"
#include "pipeline/input/events/record_processor.h"
#include "pipeline/input/events/status_texts.h"
#include "pipeline/input/rules/stanza_configuration.h"

#include <cstdio>
#include <unordered_map>

// The room `replay`: the monitor's stream of a capture, made by the monitor's own rooms from what the machine
// said when it was recorded.
namespace velmox {

/// The machine that a capture was recorded on, as far as rendering asks it. For one thread.
class RecordedMachine : public Machine
{
public:
    explicit RecordedMachine(const CaptureStart &start) : drives_(start.drives) {}

    /// Moves on to the moment at which this buffer came in. The object must stand until the next one.
    void moveTo(const BufferFacts &facts, StatusTexts &statusTexts);

    bool localTime(Timeval utc, Timeval &local) override;
    bool processImage(std::uint32_t pid, char16_t *out) override;
    std::uint32_t tickCount() const override { return tickCount_; }
    DriveMap &drives() override { return drives_; }

private:
    DriveMap drives_;
    std::uint32_t tickCount_ = 0;
    // By second. A record takes the time of an earlier one where its own lies before, so all are kept.
    std::unordered_map<std::uint64_t, std::int64_t> offsets_;
    // Of the buffer at hand, those that have not been asked for.
    std::span<const CapturedProcess> created_;
};

/// Writes the stream that the monitor would have written, had it read a capture's buffers and been given
/// these stanzas. It has no baseline, which is no matter of the driver.
///
/// Without an enabled stanza that is nothing. One at a time in a process, as there is one table of processes.
/// The stream ends with the object, unless it is left open.
class CaptureReplay
{
public:
    /// `out` passes bytes as they are and is not closed; null for a stream that is counted alone. Throws
    /// RegexException for a pattern that does not compile.
    CaptureReplay(const CaptureStart &start, const Stanzas &stanzas, const StanzaDefaults &defaults,
                  std::FILE *out);
    ~CaptureReplay();
    CaptureReplay(const CaptureReplay &) = delete;
    CaptureReplay &operator=(const CaptureReplay &) = delete;

    void take(const CapturedBuffer &buffer);
    /// The same in two steps: the facts of a buffer once, and its records, whole ones, in pieces.
    void moveTo(const BufferFacts &facts) { machine_.moveTo(facts, statusTexts_); }
    void take(std::span<const unsigned char> records);

    /// The stream is not to end as if it were whole.
    void leaveOpen() { emitter_.leaveOpen(); }

    bool hasStanzas() { return rules_.registryGroup() != nullptr; }
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

    // The order counts: `configure`, from which `asked_` is made, uses the three before, and the emitter and
    // the records refer to all of them.
    RecordedMachine machine_;
    HiveNames hiveNames_;
    MonitorRules rules_;
    StatusTexts statusTexts_;
    AskedRecords asked_;
    EventEmitter emitter_;
    RecordProcessor records_;
};

} // namespace velmox
