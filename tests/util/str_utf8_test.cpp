#include "util/str.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

bool isValid(std::string_view text)
{
    return Str::isValidUtf8(text.data(), text.size());
}

TEST(StrUtf8, acceptsExactlyTheWellFormedCharacters)
{
    // Each is the first or the last of its form.
    for (const char *text :
         {"", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xEC\xBF\xBF", "\xED\x80\x80", "\xED\x9F\xBF",
          "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF3\xBF\xBF\xBF", "\xF4\x8F\xBF\xBF",
          "a\xC2\x80z\xE0\xA0\x80"}) {
        EXPECT_TRUE(isValid(text)) << testing::PrintToString(text);
    }
    for (const char *text :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2\x7F", "\xC2\xC0", "\xE0\x9F\xBF", "\xE1\x80",
          "\xE1\x80\x7F", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF1\x80\x80", "\xF1\x80\x80\xC0",
          "\xF1\x80\x41\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
        EXPECT_FALSE(isValid(text)) << testing::PrintToString(text);
        EXPECT_FALSE(isValid(Str::concat(Str("ok "), Str(text)))) << testing::PrintToString(text);
    }
}

TEST(StrUtf8, decodesUrls)
{
    const std::pair<const char *, const char *> cases[] = {
        {"", ""},
        {"plain", "plain"},
        {"a+b%20c", "a b c"},
        {"%41%4a%4A%2b", "AJJ+"},
        {"100%", "100%"},
        {"%4", "%4"},
        {"%4g%g4%", "%4g%g4%"},
        {"%%41", "%A"},
        {"%25%34", "%4"},
        {"%c3%A4\xC3\xB6", "\u00E4\u00F6"},
    };
    for (const auto &[encoded, decoded] : cases) {
        Str text(encoded);
        EXPECT_TRUE(text.urlDecode()) << encoded;
        EXPECT_EQ(text, decoded);
    }
    Str nul("a%00b");
    EXPECT_TRUE(nul.urlDecode());
    EXPECT_EQ(nul, Str("a\0b", 3));
    for (const char *bad : {"%ff", "x+%c3", "\xFF", "%ed%a0%80"}) {
        Str text(bad);
        EXPECT_FALSE(text.urlDecode()) << bad;
        EXPECT_EQ(text, bad) << "the text stays as it was";
    }
}

} // namespace
} // namespace velmox
