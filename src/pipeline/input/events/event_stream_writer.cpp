#include "pipeline/input/events/event_stream_writer.h"

#include "pipeline/input/xml/xml_entity.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace velmox {

namespace {

using Escape = ShortText<8>;
using Tag = ShortText<16>;

template <class Short>
consteval Short makeShort(std::string_view text)
{
    Short made{};
    if (text.size() > sizeof made.text) {
        throw "no short text";
    }
    text.copy(made.text, sizeof made.text);
    made.length = static_cast<std::uint8_t>(text.size());
    return made;
}

consteval Tag tag(std::string_view text)
{
    return makeShort<Tag>(text);
}

consteval std::string_view lineEndOf(LineEnds lineEnds)
{
    return lineEnds == LineEnds::CrLf ? "\r\n" : "\n";
}

/// What is written for one byte; nothing for the NUL, which ends a text.
consteval Escape escapeOf(unsigned char byte, LineEnds lineEnds)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    const char plain = static_cast<char>(byte);
    if (plain == '\0') {
        return {};
    }
    if (const std::string_view entity = xmlEntityOf(plain); !entity.empty()) {
        return makeShort<Escape>(entity);
    }
    if (plain == '\n') {
        return makeShort<Escape>(lineEndOf(lineEnds));
    }
    // XML 1.0 cannot say these at all, not even by references.
    if (byte < 32 && plain != '\t' && plain != '\r') {
        const char code[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
        return makeShort<Escape>({code, sizeof code});
    }
    return makeShort<Escape>({&plain, 1});
}

using Escapes = std::array<Escape, 256>;

consteval Escapes makeEscapes(LineEnds lineEnds)
{
    Escapes escapes{};
    for (unsigned byte = 0; byte < escapes.size(); ++byte) {
        escapes[byte] = escapeOf(static_cast<unsigned char>(byte), lineEnds);
    }
    return escapes;
}

// By the kind of line end. Made by the compiler: a start computes nothing.
constexpr Escapes kEscapes[] = {makeEscapes(LineEnds::OfTheStream), makeEscapes(LineEnds::CrLf)};
constexpr Tag kLineEnds[] = {tag(lineEndOf(LineEnds::OfTheStream)), tag(lineEndOf(LineEnds::CrLf))};

struct Element
{
    Tag open;
    Str InputEvent::*text;
    Tag close;
};

// In the order in which the stream has them.
constexpr Element kElements[] = {
    {tag("<time>"), &InputEvent::time, tag("</time>")},
    {tag("<data>"), &InputEvent::data, tag("</data>")},
    {tag("<source>"), &InputEvent::source, tag("</source>")},
    {tag("<sourcetype>"), &InputEvent::sourcetype, tag("</sourcetype>")},
    {tag("<host>"), &InputEvent::host, tag("</host>")},
    {tag("<index>"), &InputEvent::index, tag("</index>")},
};

} // namespace

void EventBytes::grow(std::size_t count)
{
    bytes_.resize(2 * bytes_.size() + count);
}

EventStreamWriter::~EventStreamWriter()
{
    if (started_ && !isLeftOpen_) {
        text_.clear();
        putLine(tag("</stream>"));
        flush();
    }
}

void EventStreamWriter::write(const InputEvent &event)
{
    text_.clear();
    if (!started_) {
        putLine(tag("<stream>"));
    }
    put(event);
    flush();
    // Only now: an event that found no memory has opened nothing that would have to be closed.
    started_ = true;
    if (out_ != nullptr) {
        // What the C library kept back would stay away for as long as nothing else happens.
        std::fflush(out_);
    }
}

void EventStreamWriter::put(const InputEvent &event)
{
    text_.put(tag("<event"));
    if (event.unbroken) {
        text_.put(tag(" unbroken=\"1\""));
    }
    if (!event.stanza.empty()) {
        text_.put(tag(" stanza=\""));
        putEscaped(event.stanza);
        text_.put(tag("\""));
    }
    putLine(tag(">"));
    for (const Element &element : kElements) {
        if (const Str &text = event.*element.text; !text.empty()) {
            text_.put(element.open);
            putEscaped(text);
            putLine(element.close);
        }
    }
    if (event.done) {
        putLine(tag("<done/>"));
    }
    putLine(tag("</event>"));
}

/// Puts a tag that ends its line.
void EventStreamWriter::putLine(const Tag &tag)
{
    text_.put(tag);
    text_.put(kLineEnds[static_cast<std::size_t>(lineEnds_)]);
}

/// Puts the text up to its first NUL. Line ends inside of a value change as all do: a text stream makes no
/// difference either.
void EventStreamWriter::putEscaped(const Str &text)
{
    // Room is made for a piece as if each of its bytes had the longest escape. For a long text at once that
    // would be eight times its length.
    constexpr std::size_t kPieceBytes = 1024;
    const Escapes &escapes = kEscapes[static_cast<std::size_t>(lineEnds_)];
    const std::string_view all = text;
    for (std::size_t at = 0; at < all.size(); at += kPieceBytes) {
        const std::string_view piece = all.substr(at, kPieceBytes);
        char *end = text_.room(piece.size() * sizeof(Escape));
        // Each byte alone: looking for stretches that stand for themselves took a tenth longer, by sixteen
        // bytes at once too, for there is something to escape in every line.
        for (const char byte : piece) {
            const Escape &escape = escapes[static_cast<unsigned char>(byte)];
            if (escape.length == 0) {
                text_.setEnd(end);
                return;
            }
            end = copyShort(escape, end);
        }
        text_.setEnd(end);
    }
}

// The event goes out by one call: with one for each of its twenty pieces, the calls took as long as the
// writing into a file.
void EventStreamWriter::flush()
{
    writtenBytes_ += text_.size();
    if (out_ != nullptr) {
        std::fwrite(text_.data(), 1, text_.size(), out_);
    }
}

} // namespace velmox
