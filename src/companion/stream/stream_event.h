#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velmox {

/// One event as its stream tells it. The texts are valid UTF-8, and hold until the reader goes on;
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
    /// As it stands, with the number in parentheses in front. Live events on the registry alone have one.
    std::string_view status;
    /// A baseline has neither of the next two.
    std::string_view pid;
    std::string_view processImage;
    /// `registry_type`, so "baseline" for a baseline.
    std::string_view operation;
    /// The next two belong to the begin or end of a process; which image the parent's is said to be, the
    /// monitor does not look up, so that it is not kept.
    std::string_view parentPid;
    std::string_view user;
    /// Of an image that was mapped into a process.
    std::string_view imagePath;
    /// This and what follows belong to the registry.
    std::string_view keyPath;
    std::string_view dataType;
    std::string_view data;

    bool isBaseline() const { return operation == "baseline"; }
    /// Else it is one of a process. Each event on the registry has a type.
    bool isOnRegistry() const { return !dataType.empty(); }
};

/// Reads the text of `<data>`, and sets of `event` what it tells. False where it is not built as the monitor
/// builds it; what `event` then holds is not to be used. The views lead into `data`.
///
/// A quote within a field is not escaped, so a quote alone ends nothing. But the fields have an order, and
/// each is read up to the whole of the text that leads over to the next: `"`, line feed, name of the next
/// field. The name of a key and the data of a value may hold that text too. The first place where it stands,
/// with a type and data behind it that fit each other, ends the key.
bool readEventData(std::string_view data, StreamEvent &event);

} // namespace velmox
