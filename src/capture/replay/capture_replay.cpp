#include "capture/replay/capture_replay.h"

#include "pipeline/input/events/process_image_table.h"
#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"

namespace velmox {

CaptureReplay::CaptureReplay(const CaptureStart &start, const Stanzas &stanzas,
                             const StanzaDefaults &defaults, std::FILE *out)
    : machine_(start), asked_(start.filter, configure(start, stanzas, defaults)),
      emitter_([](const Str &) {}, out, machine_, LineEnds::CrLf),
      records_(rules_, hiveNames_, statusTexts_, emitter_, machine_)
{
    ProcessImageTable &table = ProcessImageTable::instance();
    table.init(machine_);
    for (const CapturedProcess &process : start.processes) {
        table.add(process.pid, process.image.c_str());
    }
}

CaptureReplay::~CaptureReplay()
{
    ProcessImageTable::instance().destroy();
}

MonitorFilterConfig CaptureReplay::configure(const CaptureStart &start, const Stanzas &stanzas,
                                             const StanzaDefaults &defaults)
{
    if (!start.userPath.empty()) {
        hiveNames_.fill(start.userPath);
    }
    hiveNames_.setActiveControlSet(start.controlSet);
    std::unique_ptr<MonitorFilterGroup> group =
        makeFilterGroup(stanzas, defaults, hiveNames_, machine_.drives());
    if (!group) {
        throw CaptureException("no enabled stanza in the document on standard input");
    }
    const MonitorFilterConfig block = makeFilterBlock(*group, hiveNames_, registryOperationMasks());
    rules_.insert(kRegmonFilters, std::move(group));
    return block;
}

void CaptureReplay::take(const CapturedBuffer &buffer)
{
    moveTo(buffer.facts);
    take(buffer.records);
}

void CaptureReplay::take(std::span<const unsigned char> records)
{
    asked_.pass(records, [this](std::span<const unsigned char> asked) {
        records_.processData(asked.data(), static_cast<std::uint32_t>(asked.size()));
    });
}

} // namespace velmox
