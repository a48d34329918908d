#include "pipeline/input/events/status_texts.h"
#include "util/system/windows_api.h"

namespace velmox {
namespace {

int mapped = 0;

TEST(StatusTexts, TheNumberIsSignedAndEachStatusIsMappedOnce)
{
    mapped = 0;
    StatusTexts texts;
    EXPECT_EQ(texts.text(0), "N/A") << "without a mapping, which is not kept";
    texts.setMapping([](long) -> unsigned long { return ++mapped, ERROR_ACCESS_DENIED; });
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
