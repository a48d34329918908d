#include "pipeline/input/events/process_enumeration.h"
#include "pipeline/input/events/process_image_table.h"

namespace velmox {
namespace {

DWORD ticks;

DWORD WINAPI tickCount()
{
    return ticks;
}

class ProcessImageTableTest : public ::testing::Test
{
protected:
    ProcessImageTableTest() { table_.init(); }
    ~ProcessImageTableTest() override { table_.destroy(); }

    std::string lookup(std::uint32_t pid)
    {
        char16_t out[kImageUnits];
        const bool isKnown = table_.lookup(pid, out, kImageUnits);
        EXPECT_EQ(isKnown, std::u16string_view(out) != u"N/A");
        return Str::fromUtf16(out).c_str();
    }

    std::string retire(std::uint32_t pid)
    {
        char16_t out[kImageUnits] = u"untouched";
        table_.retire(pid, out, kImageUnits);
        return Str::fromUtf16(out).c_str();
    }

    ProcessImageTable table_;
};

TEST_F(ProcessImageTableTest, ASecondEntryShadowsTheFirstUntilItRetires)
{
    table_.add(8, u"");
    EXPECT_EQ(lookup(8), "N/A");
    EXPECT_EQ(retire(8), "untouched");
    table_.add(12, u"other");
    table_.add(8, u"first");
    table_.add(8, u"second");
    EXPECT_EQ(lookup(8), "second");
    EXPECT_EQ(retire(8), "second");
    EXPECT_EQ(lookup(8), "first");
    EXPECT_EQ(retire(8), "first");
    EXPECT_EQ(retire(8), "untouched");
    EXPECT_EQ(lookup(8), "second") << "the oldest of the retired";
    table_.add(8, u"third");
    EXPECT_EQ(lookup(8), "third");
    char16_t out[4];
    EXPECT_TRUE(table_.lookup(12, out, 4));
    EXPECT_EQ(std::u16string(out), u"oth");
}

TEST_F(ProcessImageTableTest, ARetiredEntryGoesOnceExpiredWithTheNextAdd)
{
    const ReplacedCall clock("GetTickCount", tickCount);
    ticks = 1000;
    for (const std::uint32_t pid : {8u, 12u, 16u}) {
        table_.add(pid, u"x");
    }
    retire(8);
    ticks += 5000;
    retire(12);
    table_.add(20, u"x");
    EXPECT_EQ(lookup(8), "x") << "kept for 5000 ms";
    ticks += 1;
    EXPECT_EQ(lookup(8), "x") << "until the next";
    table_.add(24, u"x");
    EXPECT_EQ(lookup(8), "N/A");
    EXPECT_EQ(lookup(12), "x");
    retire(16);
    EXPECT_EQ(lookup(16), "x");
    ticks += 5001;
    table_.add(28, u"x");
    EXPECT_EQ(lookup(12) + lookup(16), "N/AN/A");
    retire(20);
    EXPECT_EQ(lookup(20), "x") << "the first of the next";
}

TEST_F(ProcessImageTableTest, WithoutTheSnapshotOrTheProcessTheRestIsStillKnown)
{
    for (const bool withSnapshot : {true, false}) {
        for (const bool withProcesses : {true, false}) {
            ProcessImageTable table;
            table.init();
            const FailingCall snapshot("CreateToolhelp32Snapshot", -1, ERROR_ACCESS_DENIED, 0,
                                       withSnapshot ? 0 : 1);
            const FailingCall process("OpenProcess", 0, ERROR_ACCESS_DENIED, 0, withProcesses ? 0 : 9999);
            enumerateProcesses([&table](std::uint32_t pid, const char16_t *image) { table.add(pid, image); });
            char16_t image[kImageUnits];
            table.lookup(GetCurrentProcessId(), image, kImageUnits);
            const Str text = Str::fromUtf16(image);
            EXPECT_EQ(text.endsWith("input-tests.exe"), withSnapshot || withProcesses) << text.c_str();
            EXPECT_EQ(text.contains("\\"), withProcesses) << text.c_str();
            table.destroy();
        }
    }
}

} // namespace
} // namespace velmox
