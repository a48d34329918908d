#include "util/text/platform.h"

namespace velmox {
namespace {

constexpr unsigned kUnknownError = 0xE0001234;
constexpr char kUnknownText[] = "FormatMessage was unable to decode error (3758101044), (0xe0001234)";

TEST(StrFormat, FormatsTextOfEveryLengthAroundItsStackBuffer)
{
    for (std::size_t length : {0, 1, 15, 16, 254, 255, 256, 257, 258, 70000}) {
        const Str body(length, 'x');
        Str text("gone");
        text.format("%s", body.c_str());
        EXPECT_EQ(text, body);
        text.appendFormat("%s%d", body.c_str(), 7);
        EXPECT_EQ(text, Str::concat(Str::concat(body, body), "7"));
    }
    EXPECT_EQ(Str::fromFormat("%lld %llu %5.2f|%-4s|%04x|%%", -9223372036854775807ll - 1,
                              18446744073709551615ull, 2.5, "ab", 0xABu),
              "-9223372036854775808 18446744073709551615  2.50|ab  |00ab|%");
    EXPECT_EQ(Str::fromFormat("%c|", 0), Str("\0|", 2));
}

TEST(StrFormat, PutsTheErrorTextIntoTheFormat)
{
    Str text;
    text.formatWithError(kUnknownError, "%s: %m; %d", "read", 3);
    EXPECT_EQ(text, Str::fromFormat("read: %s; 3", kUnknownText));
    text.formatWithError(kUnknownError, "%%m %m%m %%%m%%");
    EXPECT_EQ(text, Str::fromFormat("%%m %s%s %%%s%%", kUnknownText, kUnknownText, kUnknownText));
    text.formatWithError(kUnknownError, "no error %d", 5);
    EXPECT_EQ(text, "no error 5");
}

TEST(StrFormat, TakesTheLastErrorAtItsEntryAndLeavesItStanding)
{
    for (const char *fmt : {"%m", "%m %m", "plain"}) {
        platform::setLastError(kUnknownError);
        const Str text = Str::fromLastErrorFormat(fmt);
        EXPECT_EQ(platform::lastError(), kUnknownError);
        EXPECT_EQ(text, Str::fromErrorFormat(kUnknownError, fmt));
    }
    Str text;
    text.formatWithLastError("%s|%m", Str(300, 'x').c_str());
    EXPECT_EQ(platform::lastError(), kUnknownError);
    EXPECT_TRUE(text.endsWith(kUnknownText));
}

TEST(ErrorText, ComesFromTheComponentTablesWithinTheirBounds)
{
    const std::pair<unsigned, const char *> cases[] = {
        {0x80005000, "An invalid ADSI path name was passed."},
        {0x80041001, "Call failed."},
        {0x80041069, "Operation timed out."},
        {0x80041089, "User attempted to put an instance with no defined key."},
        {0x80004FFF, nullptr},
        {0x80005015, nullptr},
        {0x80041000, nullptr},
        {0x8004104A, nullptr},
        {0x8004108B, nullptr}};
    for (const auto &[error, expected] : cases) {
        Str text;
        text.appendErrorText(error);
        EXPECT_EQ(text, expected ? Str(expected)
                                 : Str::fromFormat("FormatMessage was unable to decode error (%lu), (0x%x)",
                                                   static_cast<unsigned long>(error), error));
    }
}

} // namespace
} // namespace velmox
