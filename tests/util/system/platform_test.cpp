#include "util/text/platform.h"

namespace velmox {
namespace {

TEST(Platform, AddsNothingThatCannotBeConverted)
{
    for (const int result : {0, -1}) {
        const FailingCall toNarrow("WideCharToMultiByte", result, ERROR_NO_UNICODE_TRANSLATION);
        const FailingCall toWide("MultiByteToWideChar", result, ERROR_NO_UNICODE_TRANSLATION);
        // Beyond ASCII, which needs no call.
        EXPECT_EQ(Str::fromUtf16(u"\u00E9t\u00E9"), "");
        EXPECT_EQ(WideStr::fromUtf8("\u00E9t\u00E9"), u"");
    }
    const FailingCall noText("FormatMessageW", 0, ERROR_MR_MID_NOT_FOUND);
    EXPECT_EQ(Str::fromErrorFormat(5, "%m"), "FormatMessage was unable to decode error (5), (0x5)");
}

} // namespace
} // namespace velmox
