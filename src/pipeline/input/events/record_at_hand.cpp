#include "pipeline/input/events/record_at_hand.h"

#include "pipeline/input/driver/driver_protocol.h"

namespace velmox {

namespace {

constexpr std::string_view CURRENT_CONTROL_SET = "\\REGISTRY\\MACHINE\\SYSTEM\\CURRENTCONTROLSET";
constexpr std::string_view kFoldedCurrentControlSet = "\\registry\\machine\\system\\currentcontrolset";

} // namespace

void RecordAtHand::take(const MonitorRecord &record)
{
    fields_ = record;
    name_ = wideTextAt(record.name(), record.nameUnits(), nameRoom_);
    // What is cleared keeps its memory, so that after some records none of the texts allocates.
    nameText_.clear();
    foldedName_.clear();
    keyPath_.clear();
}

const Str &RecordAtHand::nameText()
{
    // An empty text is one that has not been made. That of a record without a name is made at each question,
    // at no cost.
    if (nameText_.empty()) {
        nameText_.appendUtf16(name_.data(), name_.size());
    }
    return nameText_;
}

const Str &RecordAtHand::foldedName()
{
    if (foldedName_.empty()) {
        // Straight from UTF-16: by way of UTF-8 a record that is dropped would be converted for nothing.
        foldedName_.appendUtf16Lowered(name_);
    }
    return foldedName_;
}

bool RecordAtHand::isOfCurrentControlSet()
{
    const Str &current = hiveNames_.currentControlSetPath();
    return !current.empty() && foldedName().startsWith(current);
}

const Str &RecordAtHand::keyPath()
{
    if (!isOfCurrentControlSet()) {
        return foldedName();
    }
    if (keyPath_.empty()) {
        keyPath_.append(kFoldedCurrentControlSet);
        keyPath_.append(foldedName_.view().substr(hiveNames_.currentControlSetPath().size()));
    }
    return keyPath_;
}

Str RecordAtHand::tracedKeyPath()
{
    if (hiveNames_.currentControlSetPath().empty()) {
        return nameText();
    }
    Str path = foldedName();
    if (isOfCurrentControlSet()) {
        // In capitals, as readers of traces know it.
        path.replace(0, hiveNames_.currentControlSetPath().size(), CURRENT_CONTROL_SET);
    }
    return path;
}

} // namespace velmox
