#pragma once

#include "pipeline/input/events/process_records.h"
#include "pipeline/input/events/registry_records.h"

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

    /// `buffer` holds whole records back to back and stays the caller's.
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
