#pragma once

#include "util/text/str.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

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

/// A text of a few bytes, copied with all its room by one move of the machine. Calls of the C library for
/// the sixty short pieces of an event took an eighth of all the time that an accepted record costs.
template <std::size_t Room>
struct ShortText
{
    char text[Room - 1];
    std::uint8_t length;
};

/// Copies the text to `out`, where there must be `Room` bytes, and returns where the text ends there.
template <std::size_t Room>
char *copyShort(const ShortText<Room> &text, char *out)
{
    static_assert(sizeof text == Room);
    std::memcpy(out, &text, Room);
    return out + text.length;
}

/// The bytes of an event, put one behind the other. Keeps its memory from event to event.
class EventBytes
{
public:
    const char *data() const { return bytes_.data(); }
    std::size_t size() const { return size_; }

    void clear() { size_ = 0; }
    template <std::size_t Room>
    void put(const ShortText<Room> &text)
    {
        setEnd(copyShort(text, room(Room)));
    }
    /// Room for so many bytes behind those that stand; the next call may move them, and the room with them.
    char *room(std::size_t count)
    {
        if (bytes_.size() - size_ < count) {
            grow(count);
        }
        return bytes_.data() + size_;
    }
    /// Says how far the room was filled.
    void setEnd(const char *end) { size_ = static_cast<std::size_t>(end - bytes_.data()); }

private:
    void grow(std::size_t count);

    /// All the room there is.
    std::vector<char> bytes_;
    std::size_t size_ = 0;
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
    void put(const InputEvent &event);
    void putLine(const ShortText<16> &tag);
    void putEscaped(const Str &text);
    void flush();

    bool started_ = false;
    bool isLeftOpen_ = false;
    std::uint64_t writtenBytes_ = 0;
    const LineEnds lineEnds_;
    std::FILE *out_;
    // What is yet to be written.
    EventBytes text_;
};

} // namespace velmox
