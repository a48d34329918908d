#include "pipeline/input/events/event_stream_writer.h"

namespace velmox {
namespace {

/// What the writer puts into its stream from its making to its end.
std::string written(const std::function<void(EventStreamWriter &)> &use)
{
    std::FILE *file = std::tmpfile();
    {
        EventStreamWriter writer(file);
        use(writer);
    }
    std::rewind(file);
    std::string bytes;
    for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
        bytes += static_cast<char>(byte);
    }
    std::fclose(file);
    return bytes;
}

std::string escaped(std::string_view text)
{
    const std::string bytes = written([text](EventStreamWriter &writer) { writer.write({.data = text}); });
    const std::size_t start = bytes.find("<data>") + 6;
    return bytes.substr(start, bytes.find("</data>") - start);
}

TEST(EventStreamWriter, WritesOnlyWhatIsThereInItsOrder)
{
    EXPECT_EQ(written([](EventStreamWriter &) {}), "");
    const std::string bytes = written([](EventStreamWriter &writer) {
        writer.write({});
        writer.write({.data = "k=\"v\"\r\nl='w'",
                      .source = "WinRegistry",
                      .sourcetype = "<t>",
                      .index = "main",
                      .stanza = "a&b",
                      .time = "1"});
        writer.write({.unbroken = true, .host = "h", .stanza = "s", .done = true});
    });
    EXPECT_EQ(bytes, R"(<stream>
<event>
</event>
<event stanza="a&amp;b">
<time>1</time>
<data>k=&quot;v&quot;)"
                     "\r"
                     R"(
l=&apos;w&apos;</data>
<source>WinRegistry</source>
<sourcetype>&lt;t&gt;</sourcetype>
<index>main</index>
</event>
<event unbroken="1" stanza="s">
<host>h</host>
<done/>
</event>
</stream>
)");
}

TEST(EventStreamWriter, EscapesEveryByteWithoutASeam)
{
    const std::map<int, std::string> entities = {{'"', "&quot;"}, {'&', "&amp;"}, {'\'', "&apos;"},
                                                 {'<', "&lt;"},   {'>', "&gt;"},  {'\t', "\t"},
                                                 {'\n', "\n"},    {'\r', "\r"}};
    for (int byte = 1; byte < 256; ++byte) {
        const char text[] = {'a', static_cast<char>(byte), 'b'};
        char code[5];
        std::snprintf(code, sizeof code, "\\x%02X", byte);
        const auto entity = entities.find(byte);
        const std::string shown = entity != entities.end() ? entity->second
                                  : byte < 32              ? code
                                                           : std::string(1, text[1]);
        EXPECT_EQ(escaped({text, sizeof text}), "a" + shown + "b") << byte;
    }
    EXPECT_EQ(escaped(std::string_view("a\0b", 3)), "a");
    // Around the size of the pieces that are written.
    for (std::size_t length = 500; length < 520; ++length) {
        const std::string plain(length, 'p');
        EXPECT_EQ(escaped(plain), plain);
        EXPECT_EQ(escaped(plain + "\"\x01" + plain), plain + "&quot;\\x01" + plain) << length;
    }
}

} // namespace
} // namespace velmox
