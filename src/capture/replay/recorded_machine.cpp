#include "capture/replay/recorded_machine.h"

#include <algorithm>

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

// Each creation of the buffer is asked for once, in the order of the records.
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
    out[process.image.copy(out, kImageUnits - 1)] = u'\0';
    return true;
}

} // namespace velmox
