#pragma once

#include "companion/events/event_filter.h"
#include "companion/stream/stream_reader.h"

#include <functional>
#include <string>

namespace velmox {

/// Reads the events of files or of standard input that a filter accepts. What is wrong with an input goes to
/// standard error, with its name and the offset.
class EventInput
{
public:
    using OnEvent = std::function<void(const StreamEvent &, const EventFields &)>;

    /// `onPause` is called whenever the bytes at hand are read, before waiting for further ones.
    EventInput(const EventFilter &filter, OnEvent onEvent, std::function<void()> onPause)
        : filter_(filter), onEvent_(std::move(onEvent)), onPause_(std::move(onPause))
    {
    }

    /// Reads an input up to its end; "-" is standard input. False when it could not be read, or not all of it
    /// was a stream.
    bool read(const std::string &path);

private:
    bool readBytes(int descriptor, const std::string &name);

    const EventFilter &filter_;
    OnEvent onEvent_;
    std::function<void()> onPause_;
    EventFields fields_;
};

/// Tells standard error what is wrong, in a line that begins with the program's name.
void complain(const std::string &what);

} // namespace velmox
