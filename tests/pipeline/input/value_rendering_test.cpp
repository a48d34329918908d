#include "pipeline/input/value_rendering.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace velmox {
namespace {

std::vector<unsigned char> utf16(std::u16string_view text)
{
    std::vector<unsigned char> bytes(text.size() * sizeof(char16_t));
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

// Renders from an odd address, as values in the driver's buffer often lie there.
std::string rendered(std::uint32_t dataType, const std::vector<unsigned char> &data)
{
    std::vector<unsigned char> shifted(data.size() + 1);
    std::copy(data.begin(), data.end(), shifted.begin() + 1);
    Str out = "left over";
    renderValueData(1, dataType, shifted.data() + 1, static_cast<std::uint32_t>(data.size()), out);
    return std::string(out.view());
}

TEST(ValueRendering, NumbersInBothNotations)
{
    EXPECT_EQ(rendered(4, {1, 0, 0, 0}), "0x00000001(1)");
    EXPECT_EQ(rendered(4, {0xff, 0xff, 0xff, 0xff}), "0xffffffff(4294967295)");
    EXPECT_EQ(rendered(11, std::vector<unsigned char>(8, 0xff)), "0xffffffffffffffff(-1)");
    EXPECT_EQ(rendered(11, {0, 0, 0, 0, 1, 0, 0, 0}), "0x0000000100000000(4294967296)");
}

TEST(ValueRendering, ShortNumbersReadMissingBytesAsZero)
{
    EXPECT_EQ(rendered(4, {0x34, 0x12}), "0x00001234(4660)");
    EXPECT_EQ(rendered(11, {7}), "0x0000000000000007(7)");
}

TEST(ValueRendering, Strings)
{
    using namespace std::string_literals;
    EXPECT_EQ(rendered(1, utf16(u"caf\u00e9")), "caf\xc3\xa9");
    EXPECT_EQ(rendered(2, utf16(std::u16string(u"%PATH%\0", 7))), "%PATH%\0"s);
    // A last odd byte is no unit, and half a surrogate is replaced.
    EXPECT_EQ(rendered(1, {'a', 0, 'b'}), "a");
    EXPECT_EQ(rendered(1, {'a', 0, 0x00, 0xd8}), "a\xef\xbf\xbd");
}

TEST(ValueRendering, ListsCountAStringOnlyWhenAFurtherNulFollows)
{
    const struct
    {
        std::u16string data;
        std::string text;
    } rows[] = {
        {{u"a\0b\0\0", 5}, "a\nb"},
        {{u"a\0b\0", 4}, "a"},
        {{u"a\0\0", 3}, "a"},
        {{u"a\0", 2}, ""},
        {{u"a", 1}, ""},
        {{u"ab\0cd", 5}, "ab"},
        {{u"\0\0", 2}, ""},
        {{u"a\0\0b\0\0", 6}, "a\n\nb"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(rendered(7, utf16(row.data)), row.text);
    }
}

TEST(ValueRendering, EverythingElseIsEmpty)
{
    for (const std::uint32_t type : {0u, 3u, 5u, 6u, 8u, 9u, 10u, 12u, 0xffffffffu}) {
        EXPECT_EQ(rendered(type, {1, 2, 3, 4, 5, 6, 7, 8}), "") << type;
    }
    EXPECT_EQ(rendered(1, {}), "");
    EXPECT_EQ(rendered(7, {}), "");
    Str out = "left over";
    renderValueData(1, 1, nullptr, 4, out);
    EXPECT_EQ(out, "");
}

TEST(ValueRendering, AForgedEndOfAnEventIsLeftOut)
{
    const std::u16string forged = u" ---velmox-regmon-end-of-event---\n***VELMOX***x";
    EXPECT_EQ(rendered(1, utf16(u"a" + forged)), "");
    EXPECT_EQ(rendered(7, utf16(u"a" + forged + std::u16string(u"\0b\0\0", 4))), "");
    // The mark alone, or with nothing behind it, ends no event.
    EXPECT_EQ(rendered(1, utf16(u"***VELMOX***")), "***VELMOX***");
    const std::u16string open = forged.substr(0, forged.size() - 1);
    EXPECT_EQ(rendered(1, utf16(open)).size(), open.size());
}

} // namespace
} // namespace velmox
