#include "pipeline/input/status_texts.h"
#include "util/windows_api.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

int mapped = 0;

unsigned long mapToAccessDenied(long)
{
    ++mapped;
    return ERROR_ACCESS_DENIED;
}

TEST(StatusTexts, WithoutAMappingNothingIsKnownNorKept)
{
    StatusTexts texts;
    EXPECT_EQ(texts.text(0), "N/A");
    texts.setMapping(mapToAccessDenied);
    EXPECT_NE(texts.text(0), "N/A");
}

TEST(StatusTexts, TheNumberIsSignedAndEachStatusIsMappedOnce)
{
    StatusTexts texts;
    texts.setMapping(mapToAccessDenied);
    mapped = 0;
    Str expected = "(-1073741790)";
    expected.appendErrorText(ERROR_ACCESS_DENIED);
    EXPECT_EQ(texts.text(0xC0000022), expected);
    EXPECT_EQ(texts.text(0xC0000022), expected);
    EXPECT_EQ(mapped, 1);
    EXPECT_TRUE(texts.text(0).startsWith("(0)"));
    EXPECT_EQ(mapped, 2);
}

} // namespace
} // namespace velmox
