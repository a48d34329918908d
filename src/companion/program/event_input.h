#pragma once

#include "companion/events/event_filter.h"
#include "companion/stream/stream_reader.h"

#include <functional>
#include <string>

namespace velmox {

/// Reads the events of files or of standard input, and asks a filter about each. What is wrong with an input
/// goes to standard error, with its name and the offset, and reading goes on behind it. For one thread; the
/// filter must outlive the object.
class EventInput
{
public:
    using OnEvent = std::function<void(const StreamEvent &, const EventFields &)>;

    /// `onEvent` gets the events that the filter accepts, `onOther` the rest.
    /// `onPause` is called whenever the bytes at hand are read, before waiting for further ones.
    EventInput(
        EventFilter &filter, OnEvent onEvent, std::function<void()> onPause = [] {},
        OnEvent onOther = [](const StreamEvent &, const EventFields &) {})
        : filter_(filter), onEvent_(std::move(onEvent)), onOther_(std::move(onOther)),
          onPause_(std::move(onPause))
    {
    }

    /// Reads an input up to its end; "-" is standard input. False when it could not be read, or not all of it
    /// was a stream.
    bool read(const std::string &path);

    /// Whether there was an input that could not be opened, or not be read to its end.
    bool hasUnreadable() const { return hasUnreadable_; }

    /// Whether the filter gave up on an event, which was then accepted.
    bool hasGivenUp() const { return hasGivenUp_; }

private:
    bool readBytes(int descriptor, const std::string &name);
    void pass(const StreamEvent &event);

    EventFilter &filter_;
    OnEvent onEvent_;
    OnEvent onOther_;
    std::function<void()> onPause_;
    EventFields fields_;
    bool hasUnreadable_ = false;
    bool hasGivenUp_ = false;
};

/// Tells standard error what is wrong, in a line that begins with the program's name.
void complain(const std::string &what);

/// The first bytes of a file, at most that many; none of a file that cannot be read.
std::string readBeginning(const std::string &path, std::size_t most);

} // namespace velmox
