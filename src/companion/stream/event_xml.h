#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace velmox {

/// The parts of an `<event>` that count, with references resolved. What is not there is empty; of an element
/// that comes twice, the last one counts.
struct EventElements
{
    std::string stanza;
    std::string time;
    std::string data;
    std::string host;
    std::string index;
};

/// Reads single events of XML. They go one after another into one document that never ends, as making a
/// parser costs more than an event; after an event that is wrong a new document begins.
class EventXml
{
public:
    EventXml();
    ~EventXml();
    EventXml(const EventXml &) = delete;
    EventXml &operator=(const EventXml &) = delete;

    /// `event` is from `<event` to `</event>`. False when it is not well-formed; `out` then holds nothing to
    /// be used. Throws std::bad_alloc when there is no memory for a parser.
    bool read(std::string_view event, EventElements &out);

private:
    /// The parser and what it fills. Hidden, so that no reader of this header needs the parser's own.
    struct State;

    /// Makes a parser whose document has begun.
    void begin();
    bool feed(std::string_view bytes);

    std::unique_ptr<State> state_;
    // The event as the parser gets it; a member so that it keeps its memory.
    std::string text_;
    // Events that the document at hand has had.
    unsigned served_ = 0;
};

} // namespace velmox
