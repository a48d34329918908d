#include "pipeline/input/process_image_table.h"

#include <gtest/gtest.h>
#include <string>

namespace velmox {
namespace {

class ProcessImageTableTest : public testing::Test
{
protected:
    ProcessImageTableTest() { table_.init(); }
    ~ProcessImageTableTest() override { table_.destroy(); }

    std::u16string lookup(std::uint32_t pid, bool known)
    {
        char16_t out[kImageUnits];
        EXPECT_EQ(table_.lookup(pid, out, kImageUnits), known) << pid;
        return out;
    }

    std::u16string retire(std::uint32_t pid)
    {
        char16_t out[kImageUnits] = u"untouched";
        table_.retire(pid, out, kImageUnits);
        return out;
    }

    ProcessImageTable table_;
};

TEST_F(ProcessImageTableTest, AnUnknownProcessIsNotAvailable)
{
    table_.add(8, u"");
    EXPECT_EQ(lookup(8, false), u"N/A");
    EXPECT_EQ(retire(8), u"untouched");
}

TEST_F(ProcessImageTableTest, AnExitedProcessStaysKnownAndItsSuccessorWins)
{
    table_.add(8, u"old");
    EXPECT_EQ(retire(8), u"old");
    EXPECT_EQ(lookup(8, true), u"old");
    table_.add(8, u"new");
    EXPECT_EQ(lookup(8, true), u"new");
}

TEST_F(ProcessImageTableTest, ASecondEntryShadowsTheFirstUntilItRetires)
{
    table_.add(8, u"first");
    table_.add(8, u"second");
    EXPECT_EQ(lookup(8, true), u"second");
    EXPECT_EQ(retire(8), u"second");
    EXPECT_EQ(lookup(8, true), u"first");
    EXPECT_EQ(retire(8), u"first");
    EXPECT_EQ(retire(8), u"untouched");
    EXPECT_EQ(lookup(8, true), u"second");
}

TEST_F(ProcessImageTableTest, ALongImageIsCutToTheCallersRoom)
{
    table_.add(8, u"abcdef");
    char16_t out[4];
    EXPECT_TRUE(table_.lookup(8, out, 4));
    EXPECT_EQ(std::u16string(out), u"abc");
}

TEST_F(ProcessImageTableTest, ARetiredEntryGoesOnceExpiredWithTheNextAdd)
{
    table_.add(8, u"gone");
    table_.add(12, u"stays");
    retire(8);
    const DWORD retiredAt = GetTickCount();
    while (GetTickCount() - retiredAt <= 5000) {
        EXPECT_EQ(lookup(8, true), u"gone");
        Sleep(250);
    }
    Sleep(50);
    EXPECT_EQ(lookup(8, true), u"gone");
    table_.add(16, u"other");
    EXPECT_EQ(lookup(8, false), u"N/A");
    EXPECT_EQ(lookup(12, true), u"stays");
    retire(12);
    EXPECT_EQ(lookup(12, true), u"stays");
}

} // namespace
} // namespace velmox
