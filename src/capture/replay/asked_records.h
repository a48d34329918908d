#pragma once

#include "pipeline/input/driver/driver_protocol.h"

#include <array>
#include <functional>
#include <span>

namespace velmox {

/// Leaves out of a recording what the driver would not have reported, had it been asked for less: a stanza
/// does not meet records that its own filter block keeps away, though its patterns would match them. Only
/// records on the registry are left out; what becomes of processes the monitor asks for always.
class AskedRecords
{
public:
    /// Takes whole records.
    using Take = std::function<void(std::span<const unsigned char> records)>;

    /// What was asked for during the recording, zeros if that is not known, and what is to be asked for.
    AskedRecords(const MonitorFilterConfig &recorded, const MonitorFilterConfig &asked);

    /// Hands on what is left of whole records, in as few pieces as possible.
    void pass(std::span<const unsigned char> records, const Take &take) const;

    /// Whether the recording lacks what is to be asked for.
    bool isIncomplete() const { return isIncomplete_; }

private:
    bool isLeftOut(const MonitorRecord &record) const;

    // Bits that were asked for then and are not now.
    std::uint32_t operations_;
    std::uint32_t hives_;
    bool isIncomplete_;
    // The operations' bits, by the 30 codes that the monitor has names for.
    std::array<std::uint32_t, 30> masks_{};
};

} // namespace velmox
