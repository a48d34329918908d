#pragma once

#include "pipeline/input/xml/input_event.h"

#include <cstdio>

namespace velmox {

/// Writes events as one XML stream to standard output and flushes each, so that the server sees it at once.
///
/// The stream's opening tag goes with the first event, its closing tag with the writer; without an event
/// nothing is written. A failed write is not noticed. For one thread; the stream is not closed.
class EventStreamWriter
{
public:
    explicit EventStreamWriter(std::FILE *out = stdout) : out_(out) {}
    ~EventStreamWriter();
    EventStreamWriter(const EventStreamWriter &) = delete;
    EventStreamWriter &operator=(const EventStreamWriter &) = delete;

    void write(const InputEvent &event);

private:
    void append(const InputEvent &event);
    void appendStart(const InputEvent &event);
    void flush();

    bool started_ = false;
    std::FILE *out_;
    // What is yet to be written; it keeps its memory.
    Str text_;
};

} // namespace velmox
