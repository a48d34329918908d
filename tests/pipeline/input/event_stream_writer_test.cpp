#include "pipeline/input/event_stream_writer.h"

#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <string>

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
    const std::string bytes = written([text](EventStreamWriter &writer) {
        InputEvent event;
        event.data = text;
        writer.write(event);
    });
    const std::size_t start = bytes.find("<data>") + 6;
    return bytes.substr(start, bytes.find("</data>") - start);
}

TEST(EventStreamWriter, WritesNothingWithoutAnEvent)
{
    EXPECT_EQ(written([](EventStreamWriter &) {}), "");
}

TEST(EventStreamWriter, WritesOnlyWhatIsThereInItsOrder)
{
    const std::string bytes = written([](EventStreamWriter &writer) {
        InputEvent event;
        writer.write(event);
        event.stanza = "a&b";
        event.time = "1";
        event.data = "k=\"v\"\r\nl='w'";
        event.source = "WinRegistry";
        event.sourcetype = "<t>";
        event.index = "main";
        writer.write(event);
        event = InputEvent{.unbroken = true, .host = "h", .stanza = "s", .done = true};
        writer.write(event);
    });
    EXPECT_EQ(bytes, "<stream>\n"
                     "<event>\n"
                     "</event>\n"
                     "<event stanza=\"a&amp;b\">\n"
                     "<time>1</time>\n"
                     "<data>k=&quot;v&quot;\r\nl=&apos;w&apos;</data>\n"
                     "<source>WinRegistry</source>\n"
                     "<sourcetype>&lt;t&gt;</sourcetype>\n"
                     "<index>main</index>\n"
                     "</event>\n"
                     "<event unbroken=\"1\" stanza=\"s\">\n"
                     "<host>h</host>\n"
                     "<done/>\n"
                     "</event>\n"
                     "</stream>\n");
}

TEST(EventStreamWriter, FlushesEachEvent)
{
    const char *name = "event_stream_writer_test.tmp";
    std::FILE *file = std::fopen(name, "wb");
    ASSERT_TRUE(file);
    {
        EventStreamWriter writer(file);
        writer.write(InputEvent{.data = "x"});
        std::FILE *reader = std::fopen(name, "rb");
        char bytes[100] = {};
        const std::size_t count = std::fread(bytes, 1, sizeof bytes, reader);
        std::fclose(reader);
        const std::string seen(bytes, count);
        EXPECT_NE(seen.find("</event>"), seen.npos) << seen;
    }
    std::fclose(file);
    std::remove(name);
}

TEST(EventStreamWriter, EscapesEveryByte)
{
    for (int byte = 1; byte < 256; ++byte) {
        const char text[] = {'a', static_cast<char>(byte), 'b'};
        std::string expected(1, text[1]);
        char code[5];
        std::snprintf(code, sizeof code, "\\x%02X", byte);
        switch (byte) {
        case '"':
            expected = "&quot;";
            break;
        case '&':
            expected = "&amp;";
            break;
        case '\'':
            expected = "&apos;";
            break;
        case '<':
            expected = "&lt;";
            break;
        case '>':
            expected = "&gt;";
            break;
        case '\t':
        case '\n':
        case '\r':
            break;
        default:
            expected = byte < 32 ? code : expected;
        }
        EXPECT_EQ(escaped({text, sizeof text}), "a" + expected + "b") << byte;
    }
    EXPECT_EQ(escaped(std::string_view("a\0b", 3)), "a");
}

TEST(EventStreamWriter, PiecesJoinWithoutASeam)
{
    for (std::size_t length = 500; length < 520; ++length) {
        const std::string plain(length, 'p');
        EXPECT_EQ(escaped(plain), plain);
        EXPECT_EQ(escaped(plain + "\"\x01" + plain), plain + "&quot;\\x01" + plain) << length;
    }
    std::string entities;
    for (int i = 0; i < 1000; ++i) {
        entities += "&quot;";
    }
    EXPECT_EQ(escaped(std::string(1000, '"')), entities);
}

} // namespace
} // namespace velmox
