#include "pipeline/input/events/value_rendering.h"

namespace velmox {
namespace {

using Bytes = std::vector<unsigned char>;

// Renders from an odd address, as values in the driver's buffer often lie there.
std::string rendered(std::uint32_t dataType, const Bytes &data)
{
    Bytes shifted(data.size() + 1);
    std::copy(data.begin(), data.end(), shifted.begin() + 1);
    Str out = "left over";
    renderValueData(1, dataType, shifted.data() + 1, static_cast<std::uint32_t>(data.size()), out);
    return std::string(out.view());
}

std::string rendered(std::uint32_t dataType, const std::u16string &text)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
    return rendered(dataType, Bytes(bytes, bytes + text.size() * sizeof(char16_t)));
}

TEST(ValueRendering, NumbersInBothNotationsWithMissingBytesAsZero)
{
    EXPECT_EQ(rendered(4, Bytes{1, 0, 0, 0}), "0x00000001(1)");
    EXPECT_EQ(rendered(4, Bytes{0xff, 0xff, 0xff, 0xff}), "0xffffffff(4294967295)");
    EXPECT_EQ(rendered(4, Bytes{0x34, 0x12}), "0x00001234(4660)");
    EXPECT_EQ(rendered(11, Bytes(8, 0xff)), "0xffffffffffffffff(-1)");
    EXPECT_EQ(rendered(11, Bytes{0, 0, 0, 0, 1, 0, 0, 0}), "0x0000000100000000(4294967296)");
    EXPECT_EQ(rendered(11, Bytes{7}), "0x0000000000000007(7)");
    for (const std::uint32_t type : {0u, 3u, 5u, 6u, 8u, 9u, 10u, 12u, 0xffffffffu}) {
        EXPECT_EQ(rendered(type, Bytes{1, 2, 3, 4, 5, 6, 7, 8}), "") << type;
    }
}

TEST(ValueRendering, TextsAndListsThatForgeNoEndOfAnEvent)
{
    const std::u16string forged = u" ---velmox-regmon-end-of-event---\n***VELMOX***";
    const struct
    {
        std::uint32_t type;
        std::u16string data;
        std::string text;
    } rows[] = {
        {1, u"caf\u00e9", "caf\xc3\xa9"},
        {2, {u"%PATH%\0", 7}, "%PATH%\0"s},
        {1, {u'a', 0xd800}, "a\xef\xbf\xbd"},
        // A list counts a string only when a further NUL follows.
        {7, {u"a\0b\0\0", 5}, "a\nb"},
        {7, {u"a\0b\0", 4}, "a"},
        {7, {u"a\0", 2}, ""},
        {7, {u"\0\0", 2}, ""},
        {7, {u"a\0\0b\0\0", 6}, "a\n\nb"},
        {1, u"a" + forged + u"x", ""},
        {7, u"a" + forged + std::u16string(u"x\0b\0\0", 5), ""},
        // The mark alone, or with nothing behind it, ends no event.
        {1, u"***VELMOX***", "***VELMOX***"},
        {1, forged, " ---velmox-regmon-end-of-event---\n***VELMOX***"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(rendered(row.type, row.data), row.text);
    }
    EXPECT_EQ(rendered(1, Bytes{'a', 0, 'b'}), "a") << "a last odd byte is no unit";
    Str out = "left over";
    renderValueData(1, 1, nullptr, 4, out);
    EXPECT_EQ(out, "");
}

TEST(ValueRendering, TypesHaveTheNamesThatReadersOfTheStreamKnow)
{
    EXPECT_STREQ(dataTypeName(1, 0), "REG_NONE");
    EXPECT_STREQ(dataTypeName(1, 7), "REG_MULTI_SZ");
    EXPECT_STREQ(dataTypeName(1, 11), "REG_QWORD");
    EXPECT_STREQ(dataTypeName(1, 12), "UNKNOWN");
    EXPECT_STREQ(dataTypeName(37, 1), "REG_SD");
    EXPECT_STREQ(dataTypeName(38, 1), "REG_SZ");
}

} // namespace
} // namespace velmox
