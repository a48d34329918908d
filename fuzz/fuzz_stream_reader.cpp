#include "companion/events/event_json.h"
#include "companion/events/event_table.h"
#include "companion/stream/stream_event.h"
#include "companion/stream/stream_reader.h"
#include "fuzz/fuzz_target.h"
#include "fuzz/xml_judge.h"
#include "pipeline/input/events/event_stream_writer.h"
#include "util/text/str_segment.h"

#include <nlohmann/json.hpp>

namespace velmox::fuzz {
namespace {

/// What a reader tells, as text, with each event in all forms.
class Told
{
public:
    explicit Told(std::string_view bytes, unsigned seed, bool isWhole)
        : reader_([this](const StreamEvent &event) { add(event); },
                  [this](std::uint64_t offset, std::string_view what) {
                      text += std::to_string(offset) + std::string(what) + '\n';
                  })
    {
        if (isWhole) {
            reader_.feed(bytes);
        } else {
            inPieces(bytes, seed, [this](std::string_view piece) { reader_.feed(piece); });
        }
        reader_.finish();
    }

    std::string text;
    std::vector<std::vector<std::string>> events;

private:
    void add(const StreamEvent &event)
    {
        events.push_back({std::string(event.stanza), std::string(event.index),
                          std::string(event.processImage), std::string(event.keyPath),
                          std::string(event.data)});
        fields_.read(event);
        std::string json;
        json_.append(fields_, json);
        const nlohmann::json parsed = nlohmann::json::parse(json);
        require(parsed.value("/registry/path"_json_pointer, "") == event.keyPath,
                "the path as the JSON has it");
        std::string line;
        EventTable({.width = 100}).append(event, fields_, line);
        require(line.find_first_of("\t\r\x1B") == std::string::npos && line.find('\n') == line.size() - 1,
                "a line of the table, without controls");
        text += json + line;
    }

    StreamReader reader_;
    EventFields fields_;
    EventJson json_;
};

/// The text that the fields of an event were read from.
std::string rebuilt(const StreamEvent &event)
{
    const auto text = [](std::string_view view) { return std::string(view); };
    std::string out = text(event.localTime) + "\n";
    if (!event.isBaseline()) {
        out += "event_status=\"" + text(event.status) + "\"\npid=" + text(event.pid) + "\nprocess_image=\"" +
               text(event.processImage) + "\"\n";
    }
    return out + "registry_type=\"" + text(event.operation) + "\"\nkey_path=\"" + text(event.keyPath) +
           "\"\ndata_type=\"" + text(event.dataType) + "\"\ndata=\"" + text(event.data) + "\"";
}

/// What the escaping of the stream makes of a text: it ends at a NUL, and controls become escapes.
Str inStream(const Str &text)
{
    Str out;
    for (const char *at = text.c_str(); *at != '\0'; ++at) {
        const auto value = static_cast<unsigned char>(*at);
        if (value < 32 && *at != '\t' && *at != '\n' && *at != '\r') {
            out.appendFormat("\\x%02X", value);
        } else {
            out << *at;
        }
    }
    return out;
}

void checkWritten(std::vector<Str> fields)
{
    fields.resize(5);
    for (Str &field : fields) {
        field = presentable(Str(field.c_str()));
    }
    const Str &image = fields[2];
    const Str &key = fields[3];
    if (image.contains("\"\nregistry_type=\"") || key.contains("\"\ndata_type=\"")) {
        return;
    }
    Str body;
    body.format("11/21/2026 06:51:16.514\nevent_status=\"(-5)no\"\npid=7\nprocess_image=\"%s\"\n"
                "registry_type=\"SetValue\"\nkey_path=\"%s\"\ndata_type=\"REG_SZ\"\ndata=\"%s\"",
                image.c_str(), key.c_str(), fields[4].c_str());
    std::size_t size = 0;
    char *bytes = nullptr;
    std::FILE *file = open_memstream(&bytes, &size);
    EventStreamWriter(file).write({.data = body, .index = fields[1], .time = "1795250211"});
    std::fclose(file);
    Str stream(bytes, size);
    std::free(bytes);
    // As the run-time of Windows writes it.
    stream.replaceAll("\n", "\r\n");
    const Told told(stream.view(), 0, true);
    require(told.events.size() == 1, "the event that was written");
    for (std::size_t at = 1; at < fields.size(); ++at) {
        require(told.events[0][at] == inStream(fields[at]).view(), "the text that was written");
    }
}

} // namespace

/// Any bytes: they read the same however they come, and all that is made of an event is well-formed. What was
/// written as an event is read as it was. The first byte separates the fields of one.
VELMOX_FUZZ_TARGET(stream_reader)
{
    const Told whole(bytes, 0, true);
    require(Told(bytes, 0, false).text == whole.text, "the same from single bytes");
    require(Told(bytes, 77, false).text == whole.text, "the same from any pieces");
    StreamEvent event;
    if (readEventData(bytes, event) && event.isOnRegistry()) {
        require(rebuilt(event) == bytes, "fields that make up the text");
    }
    if (!bytes.empty()) {
        StrVector fields;
        StrSegment(bytes.substr(1)).splitInto(fields, Str(1, bytes.front()).c_str());
        checkWritten(fields);
    }
}

} // namespace velmox::fuzz
