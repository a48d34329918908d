#pragma once

#include "pipeline/input/driver/driver_protocol.h"
#include "pipeline/input/events/event_emitter.h"
#include "pipeline/input/events/process_image_table.h"
#include "pipeline/input/events/record_clock.h"
#include "pipeline/input/events/status_texts.h"
#include "pipeline/input/rules/hive_names.h"
#include "pipeline/input/rules/monitor_rules.h"

namespace velmox {

/// Takes the driver's buffers apart, keeps the process table up to date, decides for each record whether it
/// goes out, and renders those that do.
///
/// Main thread only. The objects passed in must outlive this one. Records are read in place, and one that is
/// dropped costs no more than its key path, its image and the filters.
class RecordProcessor
{
public:
    RecordProcessor(MonitorRules &rules, HiveNames &hiveNames, StatusTexts &statusTexts,
                    EventEmitter &emitter)
        : rules_(rules), hiveNames_(hiveNames), statusTexts_(statusTexts), emitter_(emitter)
    {
    }

    /// `buffer` holds whole records back to back and stays the caller's.
    void processData(const unsigned char *buffer, std::uint32_t bytes);

private:
    void prepare(const MonitorRecord &record);
    void makeKeyPath();
    bool passes(const Str &groupName, const Str &process, const Str &keyPath, std::string_view type);

    void onRegistryRecord(const MonitorRecord &record);
    void emitRegistryEvent(const MonitorRecord &record, const char *registryType);
    Str shortKeyText() const;

    void onProcessRecord(const MonitorRecord &record);
    void onProcessCreated(const MonitorRecord &record);
    void onProcessExited(const MonitorRecord &record);
    void onImageRecord(const MonitorRecord &record);
    void learnImage(const MonitorRecord &record);
    Str displayed(const char16_t *image) const;

    MonitorRules &rules_;
    HiveNames &hiveNames_;
    StatusTexts &statusTexts_;
    EventEmitter &emitter_;
    RecordClock clock_;

    // The record at hand; the strings keep their memory from record to record.
    std::u16string_view name_;
    std::u16string nameRoom_; // behind data of odd length a name stands at an odd address
    Str rawPath_;             // name_ in UTF-8: the path of a key or an image, or an account
    Str keyPath_;             // rawPath_ for the filters, with the current control set under that name
    char16_t imageBuffer_[kImageUnits]; // the table's image of the process, or "N/A"
    bool imageKnown_ = false;
    Str processImage_; // imageBuffer_ for the filters, empty for an unknown process
    SYSTEMTIME eventTime_ = {};
    SysMonFilterableEvent event_;
};

} // namespace velmox
