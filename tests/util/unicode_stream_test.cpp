#include "tests/support/memory_stream.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace velmox {
namespace {

using testing::MemoryReader;
using testing::MemoryWriter;
using namespace std::string_literals;
using namespace std::string_view_literals;

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

std::string readAll(std::string bytes, TextEncodingWord inAdvance = 0, bool replace = false)
{
    MemoryReader reader(std::move(bytes));
    if (inAdvance != 0) {
        reader.setEncoding(inAdvance);
    }
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

TEST(UnicodeStreamTest, CarriesTextThroughEveryEncodingAndSplit)
{
    const std::string text = "key = v\xC3\xA4lue\n\n\xE2\x82\xAC \xEF\xBF\xBD\r\n\xF0\x9F\x98\x80 end\n";
    const std::u16string wide = u"key = v\u00E4lue\n\n\u20AC \uFFFD\r\n\U0001F600 end\n";
    const std::string lines = "[key = v\xC3\xA4lue][][\xE2\x82\xAC \xEF\xBF\xBD][\xF0\x9F\x98\x80 end]";
    for (TextEncodingWord encoding = kUtf8; encoding <= kUtf32Be; ++encoding) {
        for (const TextEncodingWord flags : {TextEncodingWord{0}, kMark, kCrLf, kMark | kCrLf}) {
            const std::string whole = writeAll(encoding | flags, text);
            for (std::size_t split = 0; split <= text.size(); ++split) {
                MemoryWriter writer(encoding | flags);
                writer.write(text.data(), split);
                writer.write(text.data() + split, text.size() - split);
                ASSERT_EQ(writer.bytes, whole) << encoding << " " << flags << " " << split;
            }
            for (std::size_t split = 0; split <= wide.size(); ++split) {
                MemoryWriter writer(encoding | flags);
                writer.write(wide.data(), split);
                writer.write(wide.data() + split, wide.size() - split);
                ASSERT_EQ(writer.bytes, whole) << encoding << " " << flags << " " << split;
            }
            MemoryReader reader(whole);
            reader.setEncoding((flags & kMark) != 0 ? kCrLf : encoding | kCrLf);
            ASSERT_EQ(linesOf(reader), lines) << encoding << " " << flags;
            EXPECT_EQ(reader.encoding(), encoding | flags);
        }
    }
}

TEST(UnicodeStreamTest, DetectsTheEncoding)
{
    const struct
    {
        const char *name;
        std::string bytes;
        TextEncodingWord encoding;
        const char *lines;
    } cases[] = {
        {"empty", "", 1 | kCrLf, ""},
        {"short", "a", kUtf8 | kCrLf, "[a]"},
        {"UTF-8 mark", "\xEF\xBB\xBFx\n", kUtf8 | kMark, "[x]"},
        {"only a mark", "\xEF\xBB\xBF", kUtf8 | kMark | kCrLf, ""},
        {"half a mark", "\xEF\xBB", kUtf8 | kCrLf, ""},
        {"UTF-16 little-endian", "\xFF\xFE\x41\0\r\0\n\0"s, kUtf16Le | kMark | kCrLf, "[A]"},
        {"UTF-16 big-endian", "\xFE\xFF\0\x41\0\n"s, kUtf16Be | kMark, "[A]"},
        {"UTF-32 big-endian", "\0\0\xFE\xFF\0\0\0\x41"s, kUtf32Be | kMark | kCrLf, "[A]"},
        {"UTF-32 little-endian", "\xFF\xFE\0\0\x41\0\0\0"s, kUtf32Le | kMark | kCrLf, "[A]"},
        {"too short for UTF-32", "\xFF\xFE\0\0\x41\0"s, kUtf16Le | kMark | kCrLf, "[\0A]"},
        {"a unit beyond UTF-32", "\xFF\xFE\0\0\x41\0\x42\0"s, kUtf16Le | kMark | kCrLf, "[\0AB]"},
        {"a NUL behind the mark", "\xFF\xFE\0\0\0\0\0\0"s, kUtf16Le | kMark | kCrLf, "[\0\0\0]"},
        {"UTF-16 without a mark", "a\0b\0c\0d\0"s, kUtf8 | kCrLf, "[a\0b\0c\0d\0]"},
    };
    for (const auto &c : cases) {
        MemoryReader reader(c.bytes);
        const std::string lines = linesOf(reader);
        EXPECT_EQ(reader.encoding(), c.encoding) << c.name;
        EXPECT_EQ(lines.substr(0, std::strlen(c.lines)), c.lines) << c.name;
    }
}

TEST(UnicodeStreamTest, LetsAMarkOverruleWhatWasSaidInAdvance)
{
    EXPECT_EQ(readAll("\xFF\xFE\x41\0"s, kUtf8), "[A]");
    EXPECT_EQ(readAll("\0\x41\0\x42"s, kUtf16Be), "[AB]");
    EXPECT_EQ(readAll("\x41\0\0\0\x42\0\0\0"s, kUtf32Le), "[AB]");
}

TEST(UnicodeStreamTest, ReadsLines)
{
    const struct
    {
        const char *text;
        const char *lines;
    } cases[] = {
        {"a\nb", "[a][b]"},         {"a\n", "[a]"},
        {"\n\n", "[][]"},           {"a\r\n\r\nb\r", "[a][][b\r]"},
        {"a\rb\r\r\n", "[a\rb\r]"}, {"a\xEF\xBB\xBF\x62\n\xEF\xBB\xBF", "[ab]"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(readAll(c.text), c.lines) << c.text;
    }
    const std::string longLine(100'000, 'x');
    EXPECT_EQ(readAll(longLine + "\r\n" + longLine), "[" + longLine + "][" + longLine + "]");
}

TEST(UnicodeStreamTest, FollowsTheLineEndsThatPrevail)
{
    MemoryReader reader("1\n2\r\n3\r\n4\n5\n");
    const TextEncodingWord expected[] = {0, 0, kCrLf, kCrLf, 0};
    Str line;
    for (const TextEncodingWord flag : expected) {
        ASSERT_TRUE(reader.readLine(line));
        EXPECT_EQ(reader.encoding() & kCrLf, flag) << line.c_str();
    }
}

TEST(UnicodeStreamTest, ReadsIntoEveryKindOfText)
{
    MemoryReader reader("one\ntw\xC3\xB6\nthr\xF0\x9F\x98\x80\xE2\x82\xAC\nfour\n");
    StrSegment view;
    Pathname path;
    WideStr wide;
    Str line;
    ASSERT_TRUE(reader.readLine(view) && view == StrSegment("one"));
    const char *buffer = view.data();
    ASSERT_TRUE(reader.readLine(path) && path == u"tw\u00F6");
    ASSERT_TRUE(reader.readWideLine(wide) && wide == u"thr\U0001F600\u20AC");
    ASSERT_TRUE(reader.readLine(view) && view == StrSegment("four"));
    EXPECT_EQ(view.data(), buffer);
    EXPECT_FALSE(reader.readLine(view));
    EXPECT_TRUE(view.empty());
    EXPECT_FALSE(reader.readLine(line) || reader.readWideLine(wide));
}

TEST(UnicodeStreamTest, DropsOrReplacesBadInput)
{
    const struct
    {
        TextEncodingWord encoding;
        std::string bytes;
        const char *dropped;
        const char *replaced; ///< '?' stands for U+FFFD
    } cases[] = {
        {kUtf8, "a\x80z", "[az]", "[a?z]"},
        {kUtf8, "a\xC1\xBFz", "[az]", "[a??z]"},
        {kUtf8, "a\xC3z", "[az]", "[a?z]"},
        {kUtf8, "a\xE2\x82z", "[az]", "[a?z]"},
        {kUtf8, "a\xF0\x9F\x98\nz", "[a][z]", "[a?][z]"},
        {kUtf8, "a\xE2\xE2\x82\xACz", "[a\xE2\x82\xACz]", "[a?\xE2\x82\xACz]"},
        {kUtf8, "a\xF5z\xC3", "[az]", "[a?z?]"},
        {kUtf8, "a\xED\xA0\x80z", "[az]", "[a?z]"},
        {kUtf8, "a\xE0\x80\x8Az\xF4\x90\x80\x80", "[az]", "[a?z?]"},
        {kUtf16Le, "\x41\0\x00\xDC\x42\0"s, "[AB]", "[A?B]"},
        {kUtf16Le, "\x41\0\x00\xD8\x42\0"s, "[AB]", "[A?B]"},
        {kUtf16Le, "\x41\0\x00\xD8\x3D\xD8\x00\xDE"s, "[A\xF0\x9F\x98\x80]", "[A?\xF0\x9F\x98\x80]"},
        {kUtf16Be, "\0\x41\xD8\x00"s, "[A]", "[A?]"},
        {kUtf16Be, "\0\x41\x20"s, "[A]", "[A?]"},
        {kUtf16Le, "\x41\0\x00\xD8\n\0\x42\0"s, "[A][B]", "[A?][B]"},
        {kUtf32Be, "\0\0\0\x41\0\x11\0\0\0\0\xD8\0\0\0\0\x42\0\0"s, "[AB]", "[A??B?]"},
        {kUtf32Be, "\0\0\0\x41\xFF\xFF\xFF\xFF\0\0\0\x42"s, "[AB]", "[A?B]"},
    };
    for (const auto &c : cases) {
        std::string replaced;
        for (const char byte : std::string_view(c.replaced)) {
            replaced += byte == '?' ? "\xEF\xBF\xBD"s : std::string(1, byte);
        }
        EXPECT_EQ(readAll(c.bytes, c.encoding), c.dropped) << c.replaced;
        EXPECT_EQ(readAll(c.bytes, c.encoding, true), replaced) << c.replaced;
        if (c.encoding == kUtf8) {
            const std::string written = writeAll(kUtf8, c.bytes, true);
            EXPECT_EQ(readAll(written), replaced) << c.replaced;
            EXPECT_EQ(readAll(writeAll(kUtf8, c.bytes)), c.dropped) << c.replaced;
        }
    }
}

TEST(UnicodeStreamTest, NeverGivesIllFormedText)
{
    std::mt19937 random(20240303);
    for (int round = 0; round < 3'000; ++round) {
        std::string bytes;
        for (std::size_t length = random() % 80; length != 0; --length) {
            constexpr unsigned char kTelling[] = {0,    '\n', '\r', 0xD8, 0xDC, 0xFE, 0xFF,
                                                  0xED, 0xF0, 0x80, 0xBF, 0xEF, 0xBB};
            const bool telling = random() % 2 == 0;
            bytes.push_back(static_cast<char>(telling ? kTelling[random() % std::size(kTelling)] : random()));
        }
        MemoryReader reader(bytes);
        reader.setEncoding(round % 7 | kCrLf);
        reader.setReplaceBadInput(round % 2 == 0);
        Str line;
        std::string text = "first\r\n";
        while (reader.readLine(line)) {
            ASSERT_TRUE(Str::isValidUtf8(line.data(), line.size()));
            text.append(line.view()).append("\r\n");
        }
        MemoryReader again(writeAll((kUtf8 + static_cast<unsigned>(round) % 5) | kMark, text));
        std::string reread;
        while (again.readLine(line)) {
            reread.append(line.view()).append("\r\n");
        }
        ASSERT_EQ(reread, text) << round;
    }
}

TEST(UnicodeStreamTest, WritesLineEndsAndMarks)
{
    const struct
    {
        TextEncodingWord encoding;
        std::string_view text;
        std::string bytes;
    } cases[] = {
        {kCrLf, "a\nb\r\n\n", "a\r\nb\r\n\r\n"},
        {0, "a\nb\r\n\r", "a\nb\r\n\r"},
        {1 | kMark, "a", "\xEF\xBB\xBF\x61"},
        {kUtf16Le | kMark | kCrLf, "\n", "\xFF\xFE\r\0\n\0"s},
        {kUtf16Be | kMark, "\xF0\x9F\x98\x80", "\xFE\xFF\xD8\x3D\xDE\x00"s},
        {kUtf32Le | kMark, "a", "\xFF\xFE\0\0a\0\0\0"s},
        {kUtf32Be | kMark, "a", "\0\0\xFE\xFF\0\0\0a"s},
        {kUtf8 | kMark, "", ""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(writeAll(c.encoding, c.text), c.bytes);
    }
    MemoryWriter writer(kUtf8 | kCrLf);
    writer.write("a\r");
    writer.write("\n");
    writer.write(u"\n", 1);
    EXPECT_EQ(writer.bytes, "a\r\n\r\n");
}

TEST(UnicodeStreamTest, CountsCharactersTornBetweenEncodingsAsBad)
{
    MemoryWriter writer(kUtf8);
    writer.setReplaceBadInput(true);
    writer.write("\xE2\x82");
    writer.write(u"x\xD83D", 2);
    writer.write("y\xC3");
    writer.finishCharacter();
    writer.write(u"\xDE00", 1);
    EXPECT_EQ(writer.bytes, "\xEF\xBF\xBDx\xEF\xBF\xBDy\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(UnicodeStreamTest, WritesFormatsAndNumbers)
{
    MemoryWriter writer(kUtf16Be);
    writer.writeFormat("%s=%d;", "x", 7);
    writer.writeNumber(-9'000'000'000LL);
    writer.writeNumber(18'000'000'000'000'000'000ULL);
    writer.writeNumber(0.5);
    EXPECT_EQ(readAll(writer.bytes, kUtf16Be), "[x=7;-9000000000180000000000000000000.500000]");
}

} // namespace
} // namespace velmox
