#pragma once

#include "capture/file/capture.h"
#include "pipeline/input/events/machine.h"
#include "pipeline/input/events/status_texts.h"

#include <unordered_map>

namespace velmox {

/// The machine that a capture was recorded on, as far as rendering asks it. For one thread.
class RecordedMachine : public Machine
{
public:
    explicit RecordedMachine(const CaptureStart &start) : drives_(start.drives) {}

    /// Moves on to the moment at which this buffer came in. The object must stand until the next one.
    void moveTo(const BufferFacts &facts, StatusTexts &statusTexts);

    bool localTime(Timeval utc, Timeval &local) override;
    bool processImage(std::uint32_t pid, char16_t *out) override;
    std::uint32_t tickCount() const override { return tickCount_; }
    DriveMap &drives() override { return drives_; }

private:
    DriveMap drives_;
    std::uint32_t tickCount_ = 0;
    // By second. A record takes the time of an earlier one where its own lies before, so all are kept.
    std::unordered_map<std::uint64_t, std::int64_t> offsets_;
    // Of the buffer at hand, those that have not been asked for.
    std::span<const CapturedProcess> created_;
};

} // namespace velmox
