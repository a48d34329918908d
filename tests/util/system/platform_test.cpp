#define OPENSSL_SUPPRESS_DEPRECATED

#include "tests/support/failing_call.h"
#include "tests/support/scoped_folder.h"
#include "util/files/file_replace.h"
#include "util/process/server_identity.h"
#include "util/system/random_hex.h"
#include "util/text/base_exception.h"
#include "util/text/platform.h"

#include <gtest/gtest.h>
#include <openssl/rand.h>

namespace velmox {
namespace {

using testing::FailingCall;

TEST(Platform, AddsNothingThatCannotBeConverted)
{
    for (const int result : {0, -1}) {
        const FailingCall toNarrow("WideCharToMultiByte", result, ERROR_NO_UNICODE_TRANSLATION);
        const FailingCall toWide("MultiByteToWideChar", result, ERROR_NO_UNICODE_TRANSLATION);
        EXPECT_EQ(Str::fromUtf16(u"lost"), "");
        EXPECT_EQ(WideStr::fromUtf8("lost"), u"");
    }
    const FailingCall noText("FormatMessageW", 0, ERROR_MR_MID_NOT_FOUND);
    EXPECT_EQ(Str::fromErrorFormat(5, "%m"), "FormatMessage was unable to decode error (5), (0x5)");
}

TEST(Platform, TellsOfMissingRandomNumbers)
{
    const testing::ScopedFolder folder;
    testing::writeWhole(folder / "from", "new");
    testing::writeWhole(folder / "to", "old");
    RAND_METHOD empty = *RAND_get_rand_method();
    empty.bytes = [](unsigned char *, int) { return 0; };
    const RAND_METHOD *const before = RAND_get_rand_method();
    RAND_set_rand_method(&empty);
    try {
        ServerIdentity();
        ADD_FAILURE();
    } catch (const ComponentException &exception) {
        EXPECT_EQ(exception.message(),
                  Str::fromErrorFormat(ERROR_GEN_FAILURE, "Cannot make the host identity: %m"));
    }
    const FailingCall otherVolume("MoveFileExW", FALSE, ERROR_NOT_SAME_DEVICE);
    EXPECT_FALSE(replaceFile(folder / "from", folder / "to"));
    EXPECT_EQ(GetLastError(), ERROR_GEN_FAILURE + 0u);
    EXPECT_EQ(folder.count(), 2u);
    EXPECT_EQ(testing::readWhole(folder / "to"), "old");
    RAND_set_rand_method(before);
}

} // namespace
} // namespace velmox
