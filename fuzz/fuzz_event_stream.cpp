#include "fuzz/fuzz_target.h"
#include "fuzz/xml_judge.h"
#include "pipeline/input/events/event_stream_writer.h"
#include "pipeline/input/events/value_rendering.h"
#include "util/text/str_segment.h"

#include <cstring>

namespace velmox::fuzz {
namespace {

Str streamOf(const std::vector<InputEvent> &events, LineEnds lineEnds = LineEnds::OfTheStream)
{
    std::size_t size = 0;
    char *bytes = nullptr;
    std::FILE *file = open_memstream(&bytes, &size);
    {
        EventStreamWriter writer(file, lineEnds);
        for (const InputEvent &event : events) {
            writer.write(event);
        }
    }
    std::fclose(file);
    const Str stream(bytes, size);
    std::free(bytes);
    return stream;
}

/// The text that the escaping promises a reader: up to the first NUL, control bytes as an escape.
Str promised(const Str &text)
{
    Str out;
    for (const char *at = text.c_str(); *at != '\0'; ++at) {
        const auto value = static_cast<unsigned char>(*at);
        if (value < 32 && std::strchr("\t\n\r", *at) == nullptr) {
            out.appendFormat("\\x%02X", value);
        } else {
            out << *at;
        }
    }
    return presentable(out);
}

/// Any reader of XML takes a line feed for the other line ends.
Str inElement(const Str &text)
{
    Str out = promised(text);
    out.replaceAll("\r\n", "\n");
    out.replaceAll("\r", "\n");
    return out;
}

/// In an attribute, it takes a space for each blank.
Str inAttribute(const Str &text)
{
    Str out = inElement(text);
    out.replaceAll("\n", " ");
    out.replaceAll("\t", " ");
    return out;
}

JudgedEvent expectedOf(const InputEvent &event)
{
    JudgedEvent expected;
    if (event.unbroken) {
        expected.attributes["unbroken"] = "1";
    }
    if (!event.stanza.empty()) {
        expected.attributes["stanza"] = inAttribute(event.stanza);
    }
    const std::pair<const char *, const Str &> texts[] = {
        {"time", event.time},     {"data", event.data},
        {"source", event.source}, {"sourcetype", event.sourcetype},
        {"host", event.host},     {"index", event.index},
    };
    for (const auto &[name, text] : texts) {
        if (!text.empty()) {
            expected.children.emplace_back(name, inElement(text));
        }
    }
    if (event.done) {
        expected.children.emplace_back("done", "");
    }
    return expected;
}

Str rendered(std::uint32_t type, const std::u16string &units)
{
    Str text;
    renderValueData(7, type, reinterpret_cast<const unsigned char *>(units.data()),
                    static_cast<std::uint32_t>(units.size() * sizeof(char16_t)), text);
    return text;
}

/// An event as a record makes it: value, key name and process path are 16-bit text of any kind.
InputEvent recordEvent(const std::vector<Str> &fields)
{
    const auto field = [&](std::size_t at) { return at < fields.size() ? fields[at] : Str(); };
    const std::uint32_t type = field(0).size() % 2 == 0 ? 1 : 7;
    Str body;
    body.format("process_image=\"%s\"\nkey_path=\"%s\"\ndata=\"%s\"\n",
                Str::fromUtf16(wideText(field(2))).c_str(), Str::fromUtf16(wideText(field(1))).c_str(),
                rendered(type, wideText(field(0))).c_str());
    return {.data = body, .source = "WinRegistry", .index = field(4), .stanza = field(3)};
}

/// An event whose texts are the bytes themselves.
InputEvent rawEvent(const std::vector<Str> &fields)
{
    const auto field = [&](std::size_t at) { return at < fields.size() ? fields[at] : Str(); };
    return {.unbroken = fields.size() % 2 == 1,
            .data = field(0),
            .source = field(1),
            .sourcetype = field(2),
            .host = field(3),
            .index = field(4),
            .stanza = field(5),
            .time = field(6),
            .done = fields.size() % 3 == 1};
}

} // namespace

/// No text makes a strict reader see anything but the events that were written, with the texts that the
/// escaping promises, whatever the line ends. The first byte separates the fields.
VELMOX_FUZZ_TARGET(event_stream)
{
    if (bytes.empty()) {
        return;
    }
    StrVector fields;
    StrSegment(bytes.substr(1)).splitInto(fields, Str(1, bytes.front()).c_str());
    const std::vector<InputEvent> events = {rawEvent(fields), recordEvent(fields), rawEvent({})};
    const Str stream = streamOf(events);
    Str withCrLf = stream;
    withCrLf.replaceAll("\n", "\r\n");
    require(streamOf(events, LineEnds::CrLf) == withCrLf, "nothing but the line ends differs");

    std::vector<JudgedEvent> seen;
    require(judgeStream(presentable(stream), seen), "a strict reader takes the stream");
    require(seen.size() == events.size(), "as many events as were written");
    for (std::size_t at = 0; at < events.size(); ++at) {
        require(seen[at] == expectedOf(events[at]), "the event as it was written");
    }
}

} // namespace velmox::fuzz
