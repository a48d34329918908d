#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velmox {

/// The parts of an `<event>` that count, with references resolved. What is not there is empty.
struct EventElements
{
    std::string stanza;
    std::string time;
    std::string data;
    std::string host;
    std::string index;
};

/// One registry event as its stream tells it. The texts are valid UTF-8, and hold until the reader goes on;
/// what is not there is empty.
struct StreamEvent
{
    /// Which stream of the input it belongs to, from 1; 0 for events in front of the first `<stream>`.
    std::uint64_t stream = 0;
    std::string_view stanza;
    std::string_view index;
    std::string_view host;
    /// Whole seconds since 1970, UTC, in decimal.
    std::string_view time;
    /// What the clock of the watched machine showed: month/day/year hour:minute:second.milliseconds.
    std::string_view localTime;
    /// As it stands, with the number in parentheses in front. A baseline has none, and neither of the next
    /// two.
    std::string_view status;
    std::string_view pid;
    std::string_view processImage;
    /// `registry_type`, so "baseline" for a baseline.
    std::string_view operation;
    std::string_view keyPath;
    std::string_view dataType;
    std::string_view data;

    bool isBaseline() const { return operation == "baseline"; }
};

} // namespace velmox
