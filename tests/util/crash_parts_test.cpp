#include "tests/support/main_thread.h"
#include "util/crash_notes.h"
#include "util/crash_sink.h"
#include "util/hex_dump.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace velmox {
namespace {

class TextSink : public CrashSink
{
public:
    void write(const char *bytes, std::size_t length) override { text.append(bytes, length); }

    Str text;
};

class LimitedTextSink : public LimitedCrashSink
{
public:
    Str text;

private:
    void put(const char *bytes, std::size_t length) override { text.append(bytes, length); }
};

TEST(CrashSink, SkipsWhatIsTooLongAndStopsWhenFull)
{
    const Str most(51'200, 'x');
    const Str tooLong(51'201, 'y');
    LimitedTextSink sink;
    sink.print(tooLong);
    EXPECT_EQ(sink.text, "Crash log write attempted over the limit of (50kB), skipping.\r\n");
    sink.text.clear();
    for (int i = 0; i < 12; ++i) {
        sink.print(most);
    }
    const Str last = "Crash log has overflowed the allowed limit (512kB), truncated.\r\n";
    EXPECT_LE(sink.text.size(), 524'288 + last.size());
    EXPECT_GT(sink.text.size(), 524'288 - most.size());
    EXPECT_EQ(sink.text.substr(sink.text.size() - last.size()), last);
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

Str writtenNotes()
{
    TextSink sink;
    Thread::currentOrMain()->crashNotes().write(sink);
    return sink.text;
}

TEST(CrashNotes, ShowTheLatestFirstAndForgetWhoLeaves)
{
    testing::ensureMainThread();
    using Note = ScopedPerThreadCrashLogStringNotation;
    auto first = std::make_unique<Note>("first");
    auto second = std::make_unique<Note>("%s", "second");
    auto third = std::make_unique<Note>("third");
    EXPECT_NE(writtenNotes().find("  third\r\n  second\r\n  first\r\n"), Str::npos);
    second.reset();
    EXPECT_NE(writtenNotes().find("  third\r\n  first\r\n"), Str::npos);
    third.reset();
    first.reset();
    EXPECT_EQ(writtenNotes().find("first"), Str::npos);
}

TEST(CrashNotes, AreFollowedSoFarAndNoFurther)
{
    testing::ensureMainThread();
    std::vector<std::unique_ptr<ScopedPerThreadCrashLogStringNotation>> notes;
    const auto hangUp = [&](std::size_t count) {
        while (notes.size() < count) {
            notes.push_back(std::make_unique<ScopedPerThreadCrashLogStringNotation>("note"));
        }
    };
    const Str tooMany =
        "Max crashlog notation count exceeded (1024), probably linked list of notations corrupted. "
        "breaking out.\r\n";
    hangUp(1024);
    EXPECT_EQ(writtenNotes().find("Max crashlog"), Str::npos);
    hangUp(1025);
    const Str text = writtenNotes();
    EXPECT_EQ(text.substr(text.size() - tooMany.size()), tooMany);
}

TEST(HexDumper, StaysWithinThePage)
{
    alignas(4096) static unsigned char pages[8192];
    for (std::size_t i = 0; i < 32; ++i) {
        pages[4096 - 18 + i] = static_cast<unsigned char>('A' + i);
    }
    struct Case
    {
        const void *start;
        std::size_t length;
        unsigned read;
        std::size_t lines;
    };
    for (const Case &row : {Case{pages, 16, 16, 1}, Case{pages, 17, 17, 2}, Case{pages + 4078, 100, 18, 2},
                            Case{reinterpret_cast<const void *>(4095), 16, 0, 0}, Case{nullptr, 16, 0, 0}}) {
        StrVector lines;
        HexDumper_to_StrVector(lines).dump(row.start, row.length, "block");
        ASSERT_EQ(lines.size(), row.lines + 1);
        EXPECT_EQ(lines[0], Str::fromFormat("First %u bytes of block @%p:", row.read, row.start));
    }
    Str text;
    HexDumper_to_Str(text).dump(pages + 4078, 100, "tail");
    EXPECT_NE(text.find("0000: 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\r\n"
                        "0010: 51 52                                            QR\r\n"),
              Str::npos)
        << text.c_str();
    TextSink sink;
    HexDumper_to_CrashLog(sink).dump(pages + 4078, 100, "tail");
    EXPECT_EQ(sink.text, text);
}

} // namespace
} // namespace velmox
