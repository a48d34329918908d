#include "capture/replay/asked_records.h"

#include "pipeline/input/rules/registry_operations.h"
#include "util/text/str.h"

namespace velmox {

namespace {

/// Whether a path of the kernel begins with this root, in whatever case, as a whole component.
bool isBelow(const MonitorRecord &record, std::string_view root)
{
    const unsigned char *name = record.name();
    const std::size_t units = record.nameUnits();
    const auto unitAt = [name](std::size_t at) { return name[2 * at] | name[2 * at + 1] << 8; };
    if (units < root.size() || (units > root.size() && unitAt(root.size()) != '\\')) {
        return false;
    }
    // From its end, for the roots begin alike. Without a copy of the name: each record of a capture comes by
    // here.
    for (std::size_t at = root.size(); at-- > 0;) {
        const int unit = unitAt(at);
        if ((unit >= 'a' && unit <= 'z' ? unit - 'a' + 'A' : unit) != root[at]) {
            return false;
        }
    }
    return true;
}

bool isOfHives(const MonitorRecord &record, std::uint32_t hives)
{
    return ((hives & kUserHives) != 0 && isBelow(record, "\\REGISTRY\\USER")) ||
           ((hives & kMachineHives) != 0 && isBelow(record, "\\REGISTRY\\MACHINE"));
}

} // namespace

AskedRecords::AskedRecords(const MonitorFilterConfig &recorded, const MonitorFilterConfig &asked)
{
    // Beside a monitor it is not known what the driver was asked for. Then anything may be in the file, and
    // whatever is not asked for now is left out; whether something is missing can't be said.
    const bool isKnown = recorded.events != 0;
    operations_ = (isKnown ? recorded.ops : ~0u) & ~asked.ops;
    hives_ = (isKnown ? recorded.hives : ~0u) & ~asked.hives;
    isIncomplete_ = isKnown && ((asked.ops & ~recorded.ops) != 0 || (asked.hives & ~recorded.hives) != 0);
    const std::map<Str, std::uint32_t> words = registryOperationMasks();
    for (std::uint32_t code = 0; code < masks_.size(); ++code) {
        const auto word = words.find(registryOperation(code).word);
        masks_[code] = word != words.end() ? word->second : 0;
    }
}

bool AskedRecords::isLeftOut(const MonitorRecord &record) const
{
    if (record.recordClass() != kRegistryRecord) {
        return false;
    }
    const std::uint32_t code = record.operation();
    return (code < masks_.size() && (masks_[code] & operations_) != 0) || isOfHives(record, hives_);
}

void AskedRecords::pass(std::span<const unsigned char> records, const Take &take) const
{
    // Most captures are replayed for what they were recorded for.
    if (operations_ == 0 && hives_ == 0) {
        take(records);
        return;
    }
    std::size_t from = 0;
    std::size_t at = 0;
    const auto takeUpToHere = [&] {
        if (from < at) {
            take(records.subspan(from, at - from));
        }
    };
    while (at < records.size()) {
        const MonitorRecord record(records.data() + at);
        if (isLeftOut(record)) {
            takeUpToHere();
            at += record.length();
            from = at;
        } else {
            at += record.length();
        }
    }
    takeUpToHere();
}

} // namespace velmox
