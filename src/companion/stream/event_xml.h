#pragma once

#include <memory>
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

/// Reads single events of XML. They go one after another into one document that never ends, as making a
/// parser costs more than an event; after an event that is wrong a new document begins.
class EventXml
{
public:
    EventXml();
    ~EventXml();
    EventXml(const EventXml &) = delete;
    EventXml &operator=(const EventXml &) = delete;

    /// `event` is from `<event` to `</event>`. False when it is not well-formed, with `out` of no meaning.
    bool read(std::string_view event, EventElements &out);

private:
    struct State;

    void begin();
    bool feed(std::string_view bytes);

    std::unique_ptr<State> state_;
    std::string text_;
    unsigned served_ = 0;
};

} // namespace velmox
