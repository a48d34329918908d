#pragma once

#include "pipeline/input/events/process_records.h"
#include "pipeline/input/events/registry_records.h"

// The room `events`: from the driver's buffers to the stream. A record is taken apart (record_at_hand.h),
// asked about in the rules, and rendered if it passes; the emitter puts the time in front and the writer
// escapes and writes. What records tell of processes is kept in a table (process_image_table.h), which names
// the process of every other record. All that is asked of the machine goes through machine.h, so that a
// recording can be rendered elsewhere by the same code.
namespace velmox {

/// Takes the driver's buffers apart and hands each record to those who decide on it and render it.
///
/// Main thread only. The objects passed in must outlive this one. Records are read in place, and one that is
/// dropped costs no more than its key path and the filters.
class RecordProcessor
{
public:
    RecordProcessor(MonitorRules &rules, HiveNames &hiveNames, StatusTexts &statusTexts,
                    EventEmitter &emitter, Machine &machine = systemMachine())
        : processes_(machine.drives()), record_(hiveNames, processes_),
          registry_(rules, hiveNames, statusTexts, clock_, emitter), process_(rules, clock_, emitter, machine)
    {
    }
    RecordProcessor(const RecordProcessor &) = delete;
    RecordProcessor &operator=(const RecordProcessor &) = delete;

    /// `buffer` holds whole records back to back and stays the caller's; records refer into it until this
    /// returns.
    void processData(const unsigned char *buffer, std::uint32_t bytes);

private:
    void dispatch(RecordAtHand &record);

    RecordClock clock_;
    ProcessTexts processes_;
    RecordAtHand record_;
    RegistryRecords registry_;
    ProcessRecords process_;
};

} // namespace velmox
