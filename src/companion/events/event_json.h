#pragma once

#include "companion/events/event_fields.h"

#include <map>
#include <memory>
#include <string>

namespace velmox {

/// Writes events as JSON, an object a line.
///
/// Making an object costs several times as much as filling one and writing it out. Events have few shapes
/// (which fields are there), so there is one object a shape, which serves all events of it.
class EventJson
{
public:
    EventJson();
    ~EventJson();
    EventJson(const EventJson &) = delete;
    EventJson &operator=(const EventJson &) = delete;

    /// Appends an object and a line feed. Texts must be valid UTF-8, as those of a `StreamReader` are; the
    /// library throws at others.
    void append(const EventFields &fields, std::string &out);

private:
    struct Shape;

    Shape &shapeOf(const EventFields &fields);

    /// By a bit for each field that is there.
    std::map<std::uint32_t, std::unique_ptr<Shape>> shapes_;
};

} // namespace velmox
