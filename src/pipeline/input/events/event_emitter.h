#pragma once

#include "pipeline/input/events/event_stream_writer.h"
#include "util/system/windows_api.h"

#include <functional>

namespace velmox {

/// Puts event texts on the stream, each under its time, index and stanza. Main thread only.
class EventEmitter
{
public:
    /// `written` is called with the body text after each event has been written. The stream is not closed.
    explicit EventEmitter(std::function<void(const Str &)> written, std::FILE *out = stdout);

    /// `time` is UTC; the text's first line becomes the machine's local time. An empty index or stanza is
    /// left out.
    void emitEvent(const Str &text, const Str &index, const Str &stanza, const SYSTEMTIME &time);

private:
    void setTime(const SYSTEMTIME &time);

    EventStreamWriter eventWriter_;
    std::function<void(const Str &)> written_;
    // Its texts keep their memory from event to event.
    InputEvent event_;
    // The time converted last, in UTC, and its local time up to the point before the milliseconds.
    SYSTEMTIME lastTime_ = {};
    Str lastLocalText_;
};

} // namespace velmox
