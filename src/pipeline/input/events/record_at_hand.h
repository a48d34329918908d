#pragma once

#include "pipeline/input/driver/driver_protocol.h"
#include "pipeline/input/events/process_texts.h"
#include "pipeline/input/rules/hive_names.h"

#include <string>
#include <string_view>

namespace velmox {

/// The record that is being handled, and the texts that are made of it, each when it is first asked for: most
/// records are dropped and need but one.
///
/// The texts hold until the next `take`, and keep their memory from record to record.
class RecordAtHand
{
public:
    /// The objects passed in must outlive this one.
    RecordAtHand(const HiveNames &hiveNames, ProcessTexts &processes)
        : hiveNames_(hiveNames), processes_(processes)
    {
    }

    /// The buffer in which the record stands must stay until the next call.
    void take(const MonitorRecord &record);

    const MonitorRecord &fields() const { return fields_; }

    /// The path of a key or an image, or an account.
    std::u16string_view name() const { return name_; }
    /// The name as the driver spells it.
    const Str &nameText();
    /// `nameText` in lower case.
    const Str &foldedName();
    /// The key path for the filters: `foldedName` with the current control set under that name, which a
    /// pattern on it has to meet, while the kernel reports a numbered one.
    const Str &keyPath();
    /// The key path for the trace: not folded where the filters need no such change.
    Str tracedKeyPath();

    const ProcessText &process() { return processes_.of(fields_.pid()); }

private:
    /// Whether the path begins with the numbered control set that is in use, and some stanza names the
    /// current one.
    bool isOfCurrentControlSet();

    const HiveNames &hiveNames_;
    ProcessTexts &processes_;

    MonitorRecord fields_{nullptr};
    // Into the driver's buffer, or into `nameRoom_`: good until the buffer goes.
    std::u16string_view name_;
    std::u16string nameRoom_; // behind data of odd length a name stands at an odd address
    // Empty until they are asked for.
    Str nameText_;
    Str foldedName_;
    Str keyPath_;
};

} // namespace velmox
