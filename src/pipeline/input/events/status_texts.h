#pragma once

#include "util/text/str.h"

#include <cstdint>
#include <map>

namespace velmox {

/// Texts of kernel statuses, each made once, so that the system's table of messages is not asked for each
/// event: the number and the system's message for the error it maps to.
///
/// Main thread only. The cache lives as long as the program and is as large as the number of statuses seen.
class StatusTexts
{
public:
    /// The routine of ntdll.dll that maps a kernel status to a system error code; the Windows calling
    /// convention is the compiler's default on 64 bits.
    using StatusToError = unsigned long (*)(long status);

    /// Without it only texts that were given by `learn` are known.
    void setMapping(StatusToError mapping) { mapping_ = mapping; }

    /// Gives a status its text, as it was elsewhere.
    void learn(std::uint32_t status, const Str &text) { texts_.insert_or_assign(status, text); }

    /// "N/A" without a mapping; the reference holds until the object goes.
    const Str &text(std::uint32_t status);

private:
    StatusToError mapping_ = nullptr;
    std::map<std::uint32_t, Str> texts_;
    const Str unknown_ = "N/A";
};

} // namespace velmox
