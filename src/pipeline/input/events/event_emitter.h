#pragma once

#include "pipeline/input/events/event_stream_writer.h"
#include "pipeline/input/events/machine.h"

#include <functional>

namespace velmox {

/// Puts event texts on the stream, each under its time, index and stanza. Main thread only: nothing else may
/// write to standard output, or it would stand amid an event.
class EventEmitter
{
public:
    /// `written` is called with the body text after each event has been written. The stream is not closed.
    explicit EventEmitter(std::function<void(const Str &)> written, std::FILE *out = stdout,
                          Machine &machine = systemMachine(), LineEnds lineEnds = LineEnds::OfTheStream);

    /// `time` is UTC; the text's first line becomes the machine's local time, or zeros if it has none. An
    /// empty index or stanza is left out.
    void emitEvent(const Str &text, const Str &index, const Str &stanza, Timeval time);

    /// Leaves the stream without its closing tag, which says that it is whole: for the replay of a damaged
    /// recording.
    void leaveOpen() { eventWriter_.leaveOpen(); }

    /// Bytes of the stream so far.
    std::uint64_t writtenBytes() const { return eventWriter_.writtenBytes(); }

private:
    /// Sets the event's time in seconds, and begins its text with the local time.
    void setTime(Timeval time);

    static constexpr std::uint64_t kNoSecond = ~std::uint64_t{0};

    Machine &machine_;
    EventStreamWriter eventWriter_;
    std::function<void(const Str &)> written_;
    // Its texts keep their memory from event to event.
    InputEvent event_;
    // The second converted last, in UTC since 1601, and its local time up to the point before the
    // milliseconds.
    std::uint64_t lastSecond_ = kNoSecond;
    Str lastLocalText_;
};

} // namespace velmox
