#include "pipeline/input/events/event_stream_writer.h"

#include "pipeline/input/xml/xml_escape.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace velmox {

namespace {

constexpr std::size_t kPieceBytes = 511;

/// What is written for one byte, in a size that a single store copies whole.
struct Escape
{
    char text[7];
    std::uint8_t length;
};
static_assert(sizeof(Escape) == 8);

constexpr Escape makeEscape(std::string_view text)
{
    Escape escape{};
    text.copy(escape.text, text.size());
    escape.length = static_cast<std::uint8_t>(text.size());
    return escape;
}

constexpr Escape escapeOf(unsigned char byte)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    const char plain = static_cast<char>(byte);
    if (const std::string_view entity = xmlEntityOf(plain); !entity.empty()) {
        return makeEscape(entity);
    }
    if (byte < 32 && byte != '\t' && byte != '\n' && byte != '\r') {
        const char code[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
        return makeEscape({code, sizeof code});
    }
    return makeEscape({&plain, 1});
}

constexpr std::array<Escape, 256> makeEscapes()
{
    std::array<Escape, 256> escapes{};
    for (unsigned byte = 0; byte < escapes.size(); ++byte) {
        escapes[byte] = escapeOf(static_cast<unsigned char>(byte));
    }
    return escapes;
}

constexpr std::array<Escape, 256> kEscapes = makeEscapes();

struct Element
{
    const char *open;
    Str InputEvent::*text;
    const char *close;
};

constexpr Element kElements[] = {
    {"<time>", &InputEvent::time, "</time>\n"},
    {"<data>", &InputEvent::data, "</data>\n"},
    {"<source>", &InputEvent::source, "</source>\n"},
    {"<sourcetype>", &InputEvent::sourcetype, "</sourcetype>\n"},
    {"<host>", &InputEvent::host, "</host>\n"},
    {"<index>", &InputEvent::index, "</index>\n"},
};

} // namespace

EventStreamWriter::~EventStreamWriter()
{
    if (started_) {
        put("</stream>\n");
    }
}

void EventStreamWriter::write(const InputEvent &event)
{
    if (!started_) {
        put("<stream>\n");
        started_ = true;
    }
    putStart(event);
    putElements(event);
    if (event.done) {
        put("<done/>\n");
    }
    put("</event>\n");
    std::fflush(out_);
}

void EventStreamWriter::putStart(const InputEvent &event)
{
    put("<event");
    if (event.unbroken) {
        put(" unbroken=\"1\"");
    }
    if (!event.stanza.empty()) {
        put(" stanza=\"");
        putEscaped(event.stanza);
        std::fputc('"', out_);
    }
    put(">\n");
}

void EventStreamWriter::putElements(const InputEvent &event)
{
    for (const Element &element : kElements) {
        const Str &text = event.*element.text;
        if (!text.empty()) {
            put(element.open);
            putEscaped(text);
            put(element.close);
        }
    }
}

/// Writes the text up to its first NUL, in pieces that never split what stands for one byte.
void EventStreamWriter::putEscaped(const Str &text)
{
    char piece[kPieceBytes + sizeof(Escape)];
    std::size_t length = 0;
    for (const char *at = text.c_str(); *at != '\0'; ++at) {
        const Escape &escape = kEscapes[static_cast<unsigned char>(*at)];
        if (length + escape.length > kPieceBytes) {
            piece[length] = '\0';
            put(piece);
            length = 0;
        }
        std::memcpy(piece + length, &escape, sizeof escape);
        length += escape.length;
    }
    piece[length] = '\0';
    put(piece);
}

} // namespace velmox
