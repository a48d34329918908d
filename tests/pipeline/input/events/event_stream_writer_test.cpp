#include "pipeline/input/events/event_stream_writer.h"

namespace velmox {
namespace {

/// What the writer puts into its stream from its making to its end. The file takes bytes as they are.
std::string written(const std::function<void(EventStreamWriter &)> &use,
                    LineEnds lineEnds = LineEnds::OfTheStream)
{
    std::FILE *file = std::tmpfile();
    {
        EventStreamWriter writer(file, lineEnds);
        use(writer);
    }
    std::string bytes(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), file), bytes.size());
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
    // Around the ends of the pieces in which a text is escaped.
    for (const std::size_t middle : {1024, 2048}) {
        for (std::size_t length = middle - 3; length < middle + 3; ++length) {
            const std::string plain(length, 'p');
            EXPECT_EQ(escaped(plain + "\"\x01" + plain), plain + "&quot;\\x01" + plain) << length;
            EXPECT_EQ(escaped(plain + '\0' + plain), plain) << length;
        }
    }
}

TEST(EventStreamWriter, TakesALargeEventBetweenSmallOnes)
{
    constexpr std::size_t kCount = 5'000'000;
    const std::string small = "<event>\n<data>s</data>\n</event>\n";
    std::string expected = "<stream>\n" + small + "<event>\n<data>";
    for (std::size_t i = 0; i < kCount; ++i) {
        expected += "&quot;";
    }
    expected += "</data>\n</event>\n" + small + "</stream>\n";
    const std::string bytes = written([](EventStreamWriter &writer) {
        writer.write({.data = "s"});
        writer.write({.data = Str(kCount, '"')});
        writer.write({.data = "s"});
    });
    EXPECT_TRUE(bytes == expected) << "not printed: 30 MB";
}

TEST(EventStreamWriter, MakesLineEndsAndCanStayOpen)
{
    const auto write = [](EventStreamWriter &writer) {
        writer.write({.data = "a\r\nb\nc\rd", .stanza = "e\n", .done = true});
    };
    const std::string open = "<stream>\r\n<event stanza=\"e\r\n\">\r\n<data>a\r\r\nb\r\nc\rd</data>\r\n"
                             "<done/>\r\n</event>\r\n";
    EXPECT_EQ(written(write, LineEnds::CrLf), open + "</stream>\r\n");
    const auto leave = [&](EventStreamWriter &writer) {
        write(writer);
        writer.leaveOpen();
        EXPECT_EQ(writer.writtenBytes(), open.size());
    };
    EXPECT_EQ(written(leave, LineEnds::CrLf), open);
    EventStreamWriter counter(nullptr, LineEnds::CrLf);
    leave(counter);
}

} // namespace
} // namespace velmox
