#include "util/log/log_message.h"

#include <array>

namespace velmox {

namespace {

constexpr std::array<std::string_view, 9> kLevelNames = {"DEBUG", "INFO",  "NOTICE", "WARN", "ERROR",
                                                         "CRIT",  "ALERT", "FATAL",  "EMERG"};

// In bytes: the tail that is kept, the least room for text at which one is, and the end of the marker, three
// points and a blank.
constexpr std::size_t kTailLength = 16;
constexpr std::size_t kLeastRoomForTail = 32;
constexpr std::size_t kMarkerEndLength = 4;

/// The marker holds the number of bytes left out and is itself in the way of some: its length and its number
/// settle together. Both only grow from one round to the next, so the rounds end.
Str markerFor(std::size_t length, std::size_t limit)
{
    Str marker;
    std::size_t skipped = length - limit;
    for (;;) {
        marker.format(" ...{skipping %llu bytes}... ", static_cast<unsigned long long>(skipped));
        const std::size_t next = length - limit + marker.size();
        if (next == skipped) {
            return marker;
        }
        skipped = next;
    }
}

} // namespace

std::string_view logLevelName(LogLevel level)
{
    const auto index = static_cast<std::size_t>(level);
    return index < kLevelNames.size() ? kLevelNames[index] : "???";
}

std::optional<LogLevel> logLevelNamed(std::string_view name)
{
    for (std::size_t index = 0; index < kLevelNames.size(); ++index) {
        if (kLevelNames[index] == name) {
            return static_cast<LogLevel>(index);
        }
    }
    return std::nullopt;
}

void appendCompressed(StrSegment text, std::size_t limit, Str &out)
{
    const Str marker = markerFor(text.size(), limit);
    const std::size_t room = limit - marker.size();
    const std::string_view whole = text.view();
    if (room < kLeastRoomForTail) {
        // The end of the marker leads over to a tail. Without one its bytes go to the head.
        out.append(whole.substr(0, room + kMarkerEndLength));
        out.append(marker.view().substr(0, marker.size() - kMarkerEndLength));
        return;
    }
    out.append(whole.substr(0, room - kTailLength));
    out.append(marker);
    out.append(whole.substr(whole.size() - kTailLength));
}

Str withVisibleLineEnds(StrSegment text)
{
    Str out;
    out.reserve(text.size() + 16);
    for (const char byte : text.view()) {
        if (byte == '\n') {
            out.append("\\n");
        } else if (byte == '\r') {
            out.append("\\r");
        } else {
            out.push_back(byte);
        }
    }
    return out;
}

} // namespace velmox
