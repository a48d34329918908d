#pragma once

#include "pipeline/input/events/event_emitter.h"
#include "pipeline/input/events/process_image_table.h"
#include "pipeline/input/events/record_at_hand.h"
#include "pipeline/input/events/record_clock.h"
#include "pipeline/input/rules/monitor_rules.h"

namespace velmox {

/// Keeps the process table up to date by the records of processes and images, and renders those that some
/// stanza asks for. The table comes first: a record that no stanza wants still names the process of registry
/// events. Main thread only; the objects passed in must outlive this one.
class ProcessRecords
{
public:
    ProcessRecords(MonitorRules &rules, RecordClock &clock, EventEmitter &emitter, Machine &machine)
        : rules_(rules), clock_(clock), emitter_(emitter), machine_(machine)
    {
    }

    /// A process was created or has exited.
    void takeProcess(RecordAtHand &record);
    /// An image was mapped into a process: its own program, or a library.
    void takeImage(RecordAtHand &record);

private:
    /// The table's image of a process.
    struct KnownImage
    {
        explicit KnownImage(std::uint32_t pid);

        bool isKnown;
        char16_t text[kImageUnits]; // "N/A" for an unknown process
    };

    /// By the group of processes' filters; false as long as there is none.
    bool passes(const Str &process, const char *type);
    void onCreated(RecordAtHand &record);
    void onExited(RecordAtHand &record);
    /// With the drive for the device, as events show it.
    Str displayed(const char16_t *image);
    static void learnImage(const RecordAtHand &record, KnownImage &image);

    MonitorRules &rules_;
    RecordClock &clock_;
    EventEmitter &emitter_;
    Machine &machine_;
};

} // namespace velmox
