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
    explicit EventEmitter(std::function<void(const Str &)> written, std::FILE *out = stdout)
        : eventWriter_(out), written_(std::move(written))
    {
    }

    /// `time` is UTC; the text's first line becomes the machine's local time. An empty index or stanza is
    /// left out.
    void emitEvent(const Str &text, const Str &index, const Str &stanza, const SYSTEMTIME &time);

private:
    Str localTimeText(const SYSTEMTIME &time);

    EventStreamWriter eventWriter_;
    std::function<void(const Str &)> written_;
    // The time converted last, in UTC and local.
    SYSTEMTIME lastTime_ = {};
    SYSTEMTIME lastLocal_ = {};
};

} // namespace velmox
