#include "capture/replay/capture_replay.h"

#include "pipeline/input/events/process_image_table.h"
#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"

namespace velmox {

void RecordedMachine::moveTo(const BufferFacts &facts, StatusTexts &statusTexts)
{
    tickCount_ = facts.tickCount;
    created_ = facts.created;
    for (const CapturedOffset &offset : facts.offsets) {
        offsets_.insert_or_assign(offset.second, offset.ticks);
    }
    for (const CapturedStatus &status : facts.statuses) {
        statusTexts.learn(status.status, status.text);
    }
}

bool RecordedMachine::localTime(Timeval utc, Timeval &local)
{
    const auto found = offsets_.find(utc.ticks() / Timeval::kTicksPerSecond);
    if (found == offsets_.end() || found->second == CapturedOffset::kNoLocalTime) {
        return false;
    }
    // Whatever the file says: numbers without a sign wrap around.
    local = Timeval(utc.ticks() + static_cast<std::uint64_t>(found->second));
    return true;
}

// Each creation of the buffer is asked for once, in the order of the records: what is left out for the
// stanzas' sake are records on the registry alone.
bool RecordedMachine::processImage(std::uint32_t pid, char16_t *out)
{
    if (created_.empty()) {
        return false;
    }
    const CapturedProcess &process = created_.front();
    created_ = created_.subspan(1);
    if (process.pid != pid || process.image.empty()) {
        return false;
    }
    // The caller's room has `kImageUnits`; the file may have any length.
    out[process.image.copy(out, kImageUnits - 1)] = u'\0';
    return true;
}

CaptureReplay::CaptureReplay(const CaptureStart &start, const Stanzas &stanzas,
                             const StanzaDefaults &defaults, std::FILE *out)
    : machine_(start), asked_(start.filter, configure(start, stanzas, defaults)),
      emitter_([](const Str &) {}, out, machine_, LineEnds::CrLf),
      records_(rules_, hiveNames_, statusTexts_, emitter_, machine_)
{
    // The table that the monitor's rooms ask is one for the process; the clock of the recording makes it
    // forget ended processes when the monitor would have.
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
    // Before the stanzas are compiled, as one that names the current control set takes the number from here.
    hiveNames_.setActiveControlSet(start.controlSet);
    std::unique_ptr<MonitorFilterGroup> group =
        makeFilterGroup(stanzas, defaults, hiveNames_, machine_.drives());
    MonitorFilterConfig block = {};
    if (group) {
        block = makeFilterBlock(*group, hiveNames_, registryOperationMasks());
        rules_.insert(kRegmonFilters, std::move(group));
    }
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
