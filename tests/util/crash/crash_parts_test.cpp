#include "tests/support/main_thread.h"
#include "util/crash/crash_notes.h"
#include "util/crash/hex_dump.h"
#include "util/thread/crash_sink.h"

namespace velmox {
namespace {

struct TextSink : CrashSink
{
    void write(const char *bytes, std::size_t length) override { text.append(bytes, length); }
    Str text;
};

struct LimitedTextSink : LimitedCrashSink
{
    void put(const char *bytes, std::size_t length) override { text.append(bytes, length); }
    Str text;
};

TEST(CrashSink, SkipsWhatIsTooLongAndStopsWhenFull)
{
    const Str most(51'200, 'x');
    LimitedTextSink sink;
    sink.print(Str(51'201, 'y'));
    const Str skipped = "Crash log write attempted over the limit of (50kB), skipping.\r\n";
    EXPECT_EQ(sink.text, skipped);
    for (int i = 0; i < 12; ++i) {
        sink.print(most);
    }
    const Str last = "Crash log has overflowed the allowed limit (512kB), truncated.\r\n";
    EXPECT_EQ(sink.text.size(), skipped.size() + 10 * most.size() + last.size());
    EXPECT_TRUE(sink.text.endsWith(last.view()));
}

TEST(CrashSink, WritesWideTextOfAnyLengthAsUtf8)
{
    WideStr wide;
    Str utf8;
    for (int i = 0; i < 300; ++i) {
        wide.append(u"a\U0001F600\u00E4");
        utf8 << "a\xF0\x9F\x98\x80\xC3\xA4";
    }
    TextSink sink;
    sink.print(wide.c_str());
    EXPECT_EQ(sink.text, utf8);
}

using Note = ScopedPerThreadCrashLogStringNotation;

Str writtenNotes()
{
    TextSink sink;
    writeCrashNotes(sink, *Thread::currentOrMain());
    return sink.text.substr(sink.text.find("\r\n"));
}

TEST(CrashNotes, ShowTheLatestFirstSoFarAndForgetWhoLeaves)
{
    ensureMainThread();
    const Note first("first");
    {
        auto second = std::make_unique<Note>("%s", "second");
        const Note third("third");
        EXPECT_EQ(writtenNotes(), "\r\n  third\r\n  second\r\n  first\r\n");
        second.reset();
        EXPECT_EQ(writtenNotes(), "\r\n  third\r\n  first\r\n");
    }
    EXPECT_EQ(writtenNotes(), "\r\n  first\r\n");

    std::vector<std::unique_ptr<Note>> notes;
    while (notes.size() < 1023) {
        notes.push_back(std::make_unique<Note>("note"));
    }
    EXPECT_TRUE(writtenNotes().endsWith("  first\r\n"));
    const Note oneTooMany("note");
    EXPECT_TRUE(
        writtenNotes().endsWith("note\r\nMax crashlog notation count exceeded (1024), probably linked "
                                "list of notations corrupted. breaking out.\r\n"));
}

TEST(HexDumper, StaysWithinThePage)
{
    alignas(4096) static unsigned char pages[8192];
    for (std::size_t i = 0; i < 32; ++i) {
        pages[4096 - 18 + i] = static_cast<unsigned char>('A' + i);
    }
    const void *const tail = pages + 4078;
    StrVector lines;
    HexDumper_to_StrVector(lines).dump(tail, 100, "tail");
    EXPECT_THAT(lines, ElementsAre(Str::fromFormat("First 18 bytes of tail @%p:", tail),
                                   "0000: 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP",
                                   "0010: 51 52                                            QR"));
    Str text;
    HexDumper_to_Str(text).dump(tail, 100, "tail");
    TextSink sink;
    HexDumper_to_CrashLog(sink).dump(tail, 100, "tail");
    EXPECT_EQ(sink.text, text);
    EXPECT_TRUE(text.endsWith(Str(lines[2]).append("\r\n")));
    lines.clear();
    HexDumper_to_StrVector(lines).dump(reinterpret_cast<const void *>(4095), 16, "the lowest page");
    EXPECT_EQ(lines.size(), 1u);
}

} // namespace
} // namespace velmox
