#pragma once

#include "util/text/str.h"

#include <cstdint>
#include <cstdio>

namespace velmox {

/// One event for the output stream. An empty text or a false flag leaves its element or attribute out. Texts
/// are UTF-8, unescaped, and end at their first NUL.
struct InputEvent
{
    /// The event is one of several that the reader puts together to one, up to that with `done`.
    bool unbroken = false;
    Str data;
    Str source;
    Str sourcetype;
    Str host;
    Str index;
    Str stanza;
    /// Seconds since 1970, as decimal text.
    Str time;
    bool done = false;
};

/// How the stream's lines end.
enum class LineEnds
{
    /// As the C stream makes them of an LF: standard output of Windows is a text stream.
    OfTheStream,
    /// CR and LF, for a stream that passes bytes as they are.
    CrLf,
};

/// Writes events as one XML stream to standard output and flushes each, so that the server sees it at once.
///
/// Without a C stream the bytes are counted alone. The stream's opening tag goes with the first event, its
/// closing tag with the writer; without an event nothing is written. A failed write is not noticed: that
/// nobody reads any more is found out by the watch of the parent. For one thread; the stream is not closed.
class EventStreamWriter
{
public:
    explicit EventStreamWriter(std::FILE *out = stdout, LineEnds lineEnds = LineEnds::OfTheStream)
        : lineEnds_(lineEnds), out_(out)
    {
    }
    ~EventStreamWriter();
    EventStreamWriter(const EventStreamWriter &) = delete;
    EventStreamWriter &operator=(const EventStreamWriter &) = delete;

    void write(const InputEvent &event);

    /// Leaves the stream without its closing tag, which says that it is whole.
    void leaveOpen() { isLeftOpen_ = true; }

    /// Bytes of the stream so far, with the line ends that they were given here.
    std::uint64_t writtenBytes() const { return writtenBytes_; }

private:
    void append(const InputEvent &event);
    void appendStart(const InputEvent &event);
    void flush();

    bool started_ = false;
    bool isLeftOpen_ = false;
    std::uint64_t writtenBytes_ = 0;
    const LineEnds lineEnds_;
    std::FILE *out_;
    // What is yet to be written; it keeps its memory.
    Str text_;
};

} // namespace velmox
