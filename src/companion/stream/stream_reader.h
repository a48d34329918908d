#pragma once

#include "companion/stream/event_xml.h"
#include "companion/stream/stream_event.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

// The room `stream`: from the bytes that the monitor wrote to its events. Bytes are cut into frames
// (`FrameScanner`), a frame is read as XML (`EventXml`), its text by the grammar of the monitor's `<data>`
// (`readEventData`). Nothing here runs in the monitor's process; what is read may be old, cut off, joined or
// damaged.
namespace velmox {

/// Cuts the bytes of event streams into events without looking into them. In a stream every `<` within a text
/// is escaped, so that each `<` begins a tag, and tags alone show where an event begins, ends, or was cut
/// off: a reader can take up a damaged stream at the next event. For one thread.
class FrameScanner
{
public:
    /// A longer event is damage: no value comes near it, and what is read must not fill the memory.
    static constexpr std::size_t kMaxEventBytes = 16 * 1024 * 1024;

    enum class Kind
    {
        StreamStart,
        /// `text` is from `<event` to `</event>`.
        Event,
        /// `text` says what is wrong. Once for bytes that follow each other.
        Damage,
    };

    struct Piece
    {
        Kind kind;
        /// Of its first byte, from the first byte that was fed.
        std::uint64_t offset;
        /// Holds until the next call.
        std::string_view text;
    };

    void feed(std::string_view bytes);
    /// Says that nothing comes behind what was fed: an event that is open is cut off.
    void finish() { ended_ = true; }
    /// Nothing when it takes further bytes to tell, or none are left.
    std::optional<Piece> next();

private:
    std::string_view rest() const { return std::string_view(buffer_).substr(at_); }
    /// Moves behind a tag of the frame, which also ends damage.
    void skip(std::string_view tag);
    std::optional<Piece> takeEvent();
    /// Hands out the event at `at_`, which the tag at `end` closes if it `isWhole`, or cuts off.
    Piece endEvent(std::size_t end, bool isWhole);
    Piece damage(std::size_t length, std::string_view what);

    std::string buffer_;
    /// Offset of the buffer's first byte.
    std::uint64_t base_ = 0;
    /// What is before it was handed out.
    std::size_t at_ = 0;
    /// How far the event at `at_` was searched for its end.
    std::size_t searched_ = 0;
    bool ended_ = false;
    // Whether the bytes at `at_` follow such that were told of as damage.
    bool inDamage_ = false;
};

/// Reads the events of one input while it grows, a stream or several one after another, in memory that is
/// bounded by the length of an event. What is wrong is told, and reading goes on behind it. For one thread;
/// both functions are called within `feed` and `finish`, and what they throw passes through.
class StreamReader
{
public:
    using OnEvent = std::function<void(const StreamEvent &)>;
    /// Offset in the input, in bytes, and what is wrong there.
    using OnDamage = std::function<void(std::uint64_t, std::string_view)>;

    StreamReader(OnEvent onEvent, OnDamage onDamage)
        : onEvent_(std::move(onEvent)), onDamage_(std::move(onDamage))
    {
    }

    void feed(std::string_view bytes);
    /// The end of the input. An event that is open is damage; an open stream is none.
    void finish();

private:
    void drain();
    void readEvent(const FrameScanner::Piece &piece);

    OnEvent onEvent_;
    OnDamage onDamage_;
    FrameScanner scanner_;
    EventXml xml_;
    EventElements elements_;
    std::uint64_t stream_ = 0;
};

} // namespace velmox
