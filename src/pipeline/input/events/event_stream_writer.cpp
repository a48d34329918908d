#include "pipeline/input/events/event_stream_writer.h"

#include "pipeline/input/xml/xml_entity.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace velmox {

namespace {

/// What is written for one byte; nothing for the NUL, which ends a text. Eight bytes, so that the whole table
/// takes 2 KiB and an entry is found by a shift.
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
    if (plain == '\0') {
        return {};
    }
    if (const std::string_view entity = xmlEntityOf(plain); !entity.empty()) {
        return makeEscape(entity);
    }
    // XML 1.0 cannot say these at all, not even by references.
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

// Made by the compiler: a start computes nothing.
constexpr std::array<Escape, 256> kEscapes = makeEscapes();

struct Element
{
    std::string_view open;
    Str InputEvent::*text;
    std::string_view close;
};

// In the order in which the stream has them.
constexpr Element kElements[] = {
    {"<time>", &InputEvent::time, "</time>\n"},
    {"<data>", &InputEvent::data, "</data>\n"},
    {"<source>", &InputEvent::source, "</source>\n"},
    {"<sourcetype>", &InputEvent::sourcetype, "</sourcetype>\n"},
    {"<host>", &InputEvent::host, "</host>\n"},
    {"<index>", &InputEvent::index, "</index>\n"},
};

/// Appends the text up to its first NUL. Most of it stands for itself, and is copied by the stretch.
void appendEscaped(Str &out, const Str &text)
{
    const char *at = text.c_str();
    for (;;) {
        const char *const plain = at;
        while (kEscapes[static_cast<unsigned char>(*at)].length == 1) {
            ++at;
        }
        out.append(plain, static_cast<std::size_t>(at - plain));
        const Escape &escape = kEscapes[static_cast<unsigned char>(*at)];
        if (escape.length == 0) {
            return;
        }
        out.append(escape.text, escape.length);
        ++at;
    }
}

} // namespace

EventStreamWriter::~EventStreamWriter()
{
    if (started_ && !isLeftOpen_) {
        text_ = "</stream>\n";
        flush();
    }
}

void EventStreamWriter::write(const InputEvent &event)
{
    text_.clear();
    if (!started_) {
        text_.append("<stream>\n");
        started_ = true;
    }
    append(event);
    flush();
    if (out_ != nullptr) {
        // What the C library kept back would stay away for as long as nothing else happens.
        std::fflush(out_);
    }
}

void EventStreamWriter::append(const InputEvent &event)
{
    appendStart(event);
    for (const Element &element : kElements) {
        const Str &text = event.*element.text;
        if (!text.empty()) {
            text_.append(element.open);
            appendEscaped(text_, text);
            text_.append(element.close);
        }
    }
    if (event.done) {
        text_.append("<done/>\n");
    }
    text_.append("</event>\n");
}

void EventStreamWriter::appendStart(const InputEvent &event)
{
    text_.append("<event");
    if (event.unbroken) {
        text_.append(" unbroken=\"1\"");
    }
    if (!event.stanza.empty()) {
        text_.append(" stanza=\"");
        appendEscaped(text_, event.stanza);
        text_.push_back('"');
    }
    text_.append(">\n");
}

// The event goes out by one call: with one for each of its twenty pieces, the calls took as long as the
// writing into a file.
void EventStreamWriter::flush()
{
    // All of them, also those inside of a value: a text stream makes no difference either.
    if (lineEnds_ == LineEnds::CrLf) {
        text_.replaceAll("\n", "\r\n");
    }
    writtenBytes_ += text_.size();
    if (out_ != nullptr) {
        std::fwrite(text_.data(), 1, text_.size(), out_);
    }
}

} // namespace velmox
