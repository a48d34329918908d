#pragma once

#include "companion/stream/event_xml.h"
#include "companion/stream/frame_scanner.h"
#include "companion/stream/stream_event.h"

#include <functional>

namespace velmox {

/// Reads the events of one input while it grows, a stream or several one after another, in memory
/// that is bounded by the length of an event. What is wrong is told, and reading goes on behind it.
class StreamReader
{
public:
    using OnEvent = std::function<void(const StreamEvent &)>;
    /// Offset in the input, in bytes, and what is wrong there.
    using OnDamage = std::function<void(std::uint64_t, std::string_view)>;

    StreamReader(OnEvent onEvent, OnDamage onDamage)
        : onEvent_(std::move(onEvent)), onDamage_(std::move(onDamage))
    {
    }

    void feed(std::string_view bytes);
    /// The end of the input. An event that is open is damage; an open stream is none.
    void finish();

private:
    void drain();
    void readEvent(const FrameScanner::Piece &piece);

    OnEvent onEvent_;
    OnDamage onDamage_;
    FrameScanner scanner_;
    EventXml xml_;
    EventElements elements_;
    std::uint64_t stream_ = 0;
};

} // namespace velmox
