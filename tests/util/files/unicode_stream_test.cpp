#include "tests/support/memory_stream.h"

namespace velmox {
namespace {

constexpr TextEncodingWord kUtf8 = 2;
constexpr TextEncodingWord kUtf16Le = 3;
constexpr TextEncodingWord kUtf16Be = 4;
constexpr TextEncodingWord kUtf32Le = 5;
constexpr TextEncodingWord kUtf32Be = 6;
constexpr TextEncodingWord kMark = 0x8000;
constexpr TextEncodingWord kCrLf = 0x4000;

std::string linesOf(ReadableUnicodeStream &reader)
{
    std::string joined;
    Str line;
    while (reader.readLine(line)) {
        joined.append("[").append(line.view()).append("]");
    }
    return joined;
}

std::string readAll(const std::string &bytes, TextEncodingWord inAdvance, bool replace = false)
{
    MemoryReader reader(bytes);
    reader.setEncoding(inAdvance);
    reader.setReplaceBadInput(replace);
    return linesOf(reader);
}

std::string writeAll(TextEncodingWord encoding, std::string_view utf8, bool replace = false)
{
    MemoryWriter writer(encoding);
    writer.setReplaceBadInput(replace);
    writer.write(utf8);
    writer.finishCharacter();
    return writer.bytes;
}

TEST(UnicodeStream, CarriesTextThroughEveryEncoding)
{
    const std::string text = "key = v\xC3\xA4lue\n\n\xE2\x82\xAC \xEF\xBF\xBD\r\n\xF0\x9F\x98\x80 end\n";
    const std::u16string wide = u"key = v\u00E4lue\n\n\u20AC \uFFFD\r\n\U0001F600 end\n";
    for (TextEncodingWord encoding = kUtf8; encoding <= kUtf32Be; ++encoding) {
        for (const TextEncodingWord flags : {TextEncodingWord{0}, kMark, kCrLf, kMark | kCrLf}) {
            const std::string bytes = writeAll(encoding | flags, text);
            MemoryWriter ofWide(encoding | flags);
            ofWide.write(wide.data(), wide.size());
            ASSERT_EQ(ofWide.bytes, bytes) << encoding << " " << flags;
            MemoryReader reader(bytes);
            reader.setEncoding((flags & kMark) != 0 ? kCrLf : encoding | kCrLf);
            ASSERT_EQ(linesOf(reader),
                      "[key = v\xC3\xA4lue][][\xE2\x82\xAC \xEF\xBF\xBD][\xF0\x9F\x98\x80 end]");
            EXPECT_EQ(reader.encoding(), encoding | flags);
        }
    }
}

TEST(UnicodeStream, DetectsEncodingsAndEndsOfLines)
{
    const std::tuple<std::string, TextEncodingWord, TextEncodingWord, std::string> cases[] = {
        // the bytes; what was said in advance; what was found; the lines
        {"", kCrLf, 1 | kCrLf, ""},
        {"\xEF\xBB\xBFx\n", kCrLf, kUtf8 | kMark, "[x]"},
        {"\xEF\xBB\xBF", kCrLf, kUtf8 | kMark | kCrLf, ""},
        {"\xFF\xFE\x41\0\r\0\n\0"s, kCrLf, kUtf16Le | kMark | kCrLf, "[A]"},
        {"\xFE\xFF\0\x41\0\n"s, kCrLf, kUtf16Be | kMark, "[A]"},
        {"\0\0\xFE\xFF\0\0\0\x41"s, kCrLf, kUtf32Be | kMark | kCrLf, "[A]"},
        {"\xFF\xFE\0\0\x41\0\0\0"s, kCrLf, kUtf32Le | kMark | kCrLf, "[A]"},
        // too short for UTF-32, a unit beyond its end, a NUL behind the mark
        {"\xFF\xFE\0\0\x41\0"s, kCrLf, kUtf16Le | kMark | kCrLf, "[\0A]"s},
        {"\xFF\xFE\0\0\x41\0\x42\0"s, kCrLf, kUtf16Le | kMark | kCrLf, "[\0AB]"s},
        {"\xFF\xFE\0\0\0\0\0\0"s, kCrLf, kUtf16Le | kMark | kCrLf, "[\0\0\0]"s},
        // UTF-16 without a mark
        {"a\0b\0c\0d\0"s, kCrLf, kUtf8 | kCrLf, "[a\0b\0c\0d\0]"s},
        {"\xFF\xFE\x41\0"s, kUtf8, kUtf16Le | kMark, "[A]"},
        {"\x41\0\0\0\x42\0\0\0"s, kUtf32Le, kUtf32Le, "[AB]"},
        // the kind of line end that prevails
        {"a\nb", kCrLf, kUtf8, "[a][b]"},
        {"a\r\n\r\nb\r", 0, kUtf8 | kCrLf, "[a][][b\r]"},
        {"1\n2\r\n3\r\n4\n", 0, kUtf8 | kCrLf, "[1][2][3][4]"},
        {"1\n2\r\n3\r\n4\n5\n", kCrLf, kUtf8, "[1][2][3][4][5]"},
        {"a\xEF\xBB\xBF\x62\n\xEF\xBB\xBF", 0, kUtf8, "[ab]"},
        {std::string(100'000, 'x') + "\r\ny", 0, kUtf8 | kCrLf, "[" + std::string(100'000, 'x') + "][y]"}};
    for (const auto &[bytes, inAdvance, encoding, lines] : cases) {
        MemoryReader reader(bytes);
        reader.setEncoding(inAdvance);
        EXPECT_EQ(linesOf(reader), lines) << inAdvance;
        EXPECT_EQ(reader.encoding(), encoding) << lines;
    }
}

TEST(UnicodeStream, ReadsIntoEveryKindOfText)
{
    MemoryReader reader("one\ntw\xC3\xB6\nthr\xF0\x9F\x98\x80\xE2\x82\xAC\nfour\n");
    StrSegment view;
    Pathname path;
    WideStr wide;
    EXPECT_TRUE(reader.readLine(view) && view == StrSegment("one"));
    EXPECT_TRUE(reader.readLine(path) && path == u"tw\u00F6");
    EXPECT_TRUE(reader.readWideLine(wide) && wide == u"thr\U0001F600\u20AC");
    EXPECT_TRUE(reader.readLine(view) && view == StrSegment("four"));
    EXPECT_FALSE(reader.readLine(view) || reader.readWideLine(wide));
}

TEST(UnicodeStream, DropsOrReplacesBadInput)
{
    const std::tuple<TextEncodingWord, std::string, const char *> cases[] = {
        // '?' stands for U+FFFD or nothing
        {kUtf8, "a\x80z", "[a?z]"},
        {kUtf8, "a\xC3z", "[a?z]"},
        {kUtf8, "a\xE2\x82z", "[a?z]"},
        {kUtf8, "a\xF0\x9F\x98\nz", "[a?][z]"},
        {kUtf8, "a\xED\xA0\x80z", "[a?z]"},
        {kUtf8, "a\xE0\x80\x8Az\xF4\x90\x80\x80", "[a?z?]"},
        {kUtf16Le, "\x41\0\x00\xD8\x42\0"s, "[A?B]"},
        {kUtf16Le, "\x41\0\x00\xD8\x3D\xD8\x00\xDE"s, "[A?\xF0\x9F\x98\x80]"},
        {kUtf16Be, "\0\x41\xD8\x00"s, "[A?]"},
        {kUtf16Le, "\x41\0\x00\xD8\n\0\x42\0"s, "[A?][B]"},
        {kUtf32Be, "\0\0\0\x41\0\x11\0\0\0\0\xD8\0\0\0\0\x42\0\0"s, "[A??B?]"},
        {kUtf32Be, "\0\0\0\x41\xFF\xFF\xFF\xFF\0\0\0\x42"s, "[A?B]"}};
    for (const auto &[encoding, bytes, shown] : cases) {
        for (const bool replaces : {false, true}) {
            Str lines(shown);
            lines.replaceAll("?", replaces ? "\uFFFD" : "");
            EXPECT_EQ(readAll(bytes, encoding, replaces), lines.view()) << shown;
            if (encoding == kUtf8) {
                EXPECT_EQ(readAll(writeAll(kUtf8, bytes, replaces), 0), lines.view()) << shown;
            }
        }
    }
}

TEST(UnicodeStream, WritesLineEndsMarksFormatsAndNumbers)
{
    const std::tuple<TextEncodingWord, std::string_view, std::string> cases[] = {
        {kCrLf, "a\nb\r\n\n", "a\r\nb\r\n\r\n"},
        {0, "a\nb\r\n\r", "a\nb\r\n\r"},
        {1 | kMark, "a", "\xEF\xBB\xBF\x61"},
        {kUtf16Le | kMark | kCrLf, "\n", "\xFF\xFE\r\0\n\0"s},
        {kUtf16Be | kMark, "\xF0\x9F\x98\x80", "\xFE\xFF\xD8\x3D\xDE\x00"s},
        {kUtf32Le | kMark, "a", "\xFF\xFE\0\0a\0\0\0"s},
        {kUtf32Be | kMark, "a", "\0\0\xFE\xFF\0\0\0a"s},
        {kUtf8 | kMark, "", ""}};
    for (const auto &[encoding, text, bytes] : cases) {
        EXPECT_EQ(writeAll(encoding, text), bytes);
    }
    MemoryWriter lines(kUtf8 | kCrLf);
    lines.write("a\r");
    lines.write("\n");
    lines.write(u"\n", 1);
    EXPECT_EQ(lines.bytes, "a\r\n\r\n");

    MemoryWriter numbers(kUtf16Be);
    numbers.writeFormat("%s=%d;", "x", 7);
    numbers.writeNumber(-9'000'000'000LL);
    EXPECT_EQ(readAll(numbers.bytes, kUtf16Be), "[x=7;-9000000000]");
}

} // namespace
} // namespace velmox
