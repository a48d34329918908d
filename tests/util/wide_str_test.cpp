#include "util/str.h"
#include "util/wide_str.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(Bridges, carryWellFormedTextBothWays)
{
    const std::pair<std::u16string_view, std::string_view> cases[] = {
        {u"", ""},
        {u"a", "a"},
        {std::u16string_view(u"a\0b", 3), std::string_view("a\0b", 3)},
        {u"\u007F\u0080\u07FF\u0800\uFFFD\uFFFF", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD\xEF\xBF\xBF"},
        {u"\U00010000\U0010FFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
    };
    for (const auto &[wide, narrow] : cases) {
        EXPECT_EQ(Str::fromUtf16(wide), narrow);
        EXPECT_EQ(WideStr::fromUtf8(narrow), wide);
    }
}

TEST(Bridges, substituteHalfSurrogates)
{
    const std::pair<std::u16string, const char *> cases[] = {
        {{u'a', 0xD800, u'b'}, "a\uFFFDb"}, {{0xDC00, u'b'}, "\uFFFDb"},
        {{u'a', 0xDBFF}, "a\uFFFD"},        {{0xD800, 0xD800, 0xDC00}, "\uFFFD\U00010000"},
        {{0xDC00, 0xD800}, "\uFFFD\uFFFD"},
    };
    for (const auto &[wide, narrow] : cases) {
        EXPECT_EQ(Str::fromUtf16(wide), narrow);
    }
}

TEST(Bridges, substituteIllFormedBytes)
{
    const std::pair<const char *, const char16_t *> cases[] = {
        {"a\x80z", u"a\uFFFDz"}, {"\xFF\xFE", u"\uFFFD\uFFFD"}, {"\xC3(", u"\uFFFD("},
        {"\xE4\xBD", u"\uFFFD"}, {"\xF0\x9F\x98|", u"\uFFFD|"}, {"\xC0\xAF", u"\uFFFD\uFFFD"},
    };
    for (const auto &[narrow, wide] : cases) {
        EXPECT_EQ(WideStr::fromUtf8(narrow), wide) << Str::fromUtf16(WideStr::fromUtf8(narrow)).c_str();
    }
}

TEST(Bridges, appendAndStopWhereTheyAreTold)
{
    Str narrow("<");
    narrow.appendUtf16(u"abc", 2);
    narrow.appendUtf16(u"d");
    narrow.appendUtf16(nullptr, 0);
    EXPECT_EQ(narrow, "<abd");
    WideStr wide(u"<");
    wide.appendUtf8("abc", 2);
    wide.appendUtf8("d");
    wide.appendUtf8(nullptr, 0);
    EXPECT_EQ(wide, u"<abd");
}

TEST(Bridges, convertTextOfAnyLength)
{
    for (std::size_t length : {7, 8, 511, 512, 513, 100000}) {
        const WideStr wide(length, u'\u20AC');
        const Str narrow = Str::fromUtf16(wide);
        EXPECT_EQ(narrow.size(), 3 * length);
        EXPECT_TRUE(WideStr::fromUtf8(narrow) == wide);
    }
}

} // namespace
} // namespace velmox
