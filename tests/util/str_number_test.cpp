#include "util/str_segment.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <limits>

namespace velmox {
namespace {

TEST(StrNumber, convertsWholeTextsByTheLibrarysRule)
{
    constexpr long long kDefault = -77;
    struct Case
    {
        const char *text;
        int base;
        long long value;
    };
    const Case cases[] = {
        {"12", 10, 12},
        {" \t\n12", 10, 12},
        {"+12", 10, 12},
        {"-12", 10, -12},
        {"12 ", 10, kDefault},
        {"", 10, kDefault},
        {" ", 10, kDefault},
        {"-", 10, kDefault},
        {"1 2", 10, kDefault},
        {"0x1F", 16, 31},
        {"0x1F", 0, 31},
        {"0x1F", 10, kDefault},
        {"017", 0, 15},
        {"9223372036854775807", 10, std::numeric_limits<long long>::max()},
        {"9223372036854775808", 10, kDefault},
        {"-9223372036854775808", 10, std::numeric_limits<long long>::min()},
        {"-9223372036854775809", 10, kDefault},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(Str(c.text).toInt64(kDefault, c.base), c.value) << c.text;
    }
    EXPECT_EQ(Str("1\0", 2).toInt64(kDefault), kDefault) << "a NUL byte is left over";
}

TEST(StrNumber, takesNoNegativeTextAsUnsigned)
{
    constexpr unsigned long long kDefault = 77;
    EXPECT_EQ(Str("18446744073709551615").toUInt64(kDefault), ~0ull);
    EXPECT_EQ(Str("18446744073709551616").toUInt64(kDefault), kDefault);
    EXPECT_EQ(Str(" \n5").toUInt64(kDefault), 5u);
    EXPECT_EQ(Str("FF").toUInt64(kDefault, 16), 255u);
    for (const char *text : {"-1", " \t-1", "-0", "", "5 ", " "}) {
        EXPECT_EQ(Str(text).toUInt64(kDefault), kDefault) << text;
    }
}

TEST(StrNumber, reportsIntegersBeyond32BitsAsRangeErrors)
{
    using Limits = std::numeric_limits<int>;
    struct Case
    {
        const char *text;
        bool fits;
        int value;
    };
    const Case cases[] = {
        {"2147483647", true, Limits::max()},
        {"2147483648", false, Limits::max()},
        {"-2147483648", true, Limits::min()},
        {"-2147483649", false, Limits::min()},
        {"99999999999999999999", false, Limits::max()},
    };
    for (const Case &c : cases) {
        int value = 0;
        EXPECT_EQ(StrSegment(c.text).toInt(value), c.fits) << c.text;
        EXPECT_EQ(errno == ERANGE, !c.fits) << c.text;
        EXPECT_EQ(value, c.value) << c.text;
        EXPECT_EQ(Str(c.text).toInt(-7), c.fits ? c.value : -7) << c.text;
    }
    int untouched = 3;
    EXPECT_FALSE(StrSegment("12x").toInt(untouched));
    EXPECT_FALSE(StrSegment().toInt(untouched));
    EXPECT_EQ(untouched, 3);
    EXPECT_TRUE(StrSegment("123456", 3).toInt(untouched)) << "the view ends where it says";
    EXPECT_EQ(untouched, 123);
}

TEST(StrNumber, readsBooleans)
{
    for (const char *text : {"t", "TRUE", "Yes", "1"}) {
        bool value = false;
        EXPECT_TRUE(Str(text).toBool(value) && value) << text;
    }
    for (const char *text : {"F", "false", "nO", "0"}) {
        bool value = true;
        EXPECT_TRUE(Str(text).toBool(value) && !value) << text;
    }
    for (const char *text : {"2", "01", "on", "tru", "true ", "y", "n"}) {
        bool value = true;
        EXPECT_FALSE(Str(text).toBool(value)) << text;
        EXPECT_TRUE(Str(text).toBool(false, true)) << text;
        EXPECT_FALSE(Str(text).toBool(true, false)) << text;
    }
    EXPECT_TRUE(Str().toBool(true, false));
    EXPECT_FALSE(Str().toBool(false, true));
    EXPECT_FALSE(Str("no").toBool(true, true));
}

template <class Integer>
bool parse(const StrSegment &text, Integer &out)
{
    if constexpr (std::is_signed_v<Integer>) {
        return text.parseSigned(out);
    } else {
        return text.parseUnsigned(out);
    }
}

template <class Integer>
class StrictInteger : public testing::Test
{
};

using IntegerTypes = testing::Types<std::int8_t, std::int16_t, std::int32_t, std::int64_t, std::uint8_t,
                                    std::uint16_t, std::uint32_t, std::uint64_t>;
TYPED_TEST_SUITE(StrictInteger, IntegerTypes);

/// The decimal text one further from zero than the given one.
std::string next(std::string digits)
{
    std::size_t at = digits.size() - 1;
    for (; digits[at] == '9'; --at) {
        digits[at] = '0';
    }
    ++digits[at];
    return digits;
}

TYPED_TEST(StrictInteger, endsExactlyAtTheLimitsOfItsType)
{
    using Limits = std::numeric_limits<TypeParam>;
    const std::string most = std::to_string(Limits::max());
    TypeParam value = 0;
    EXPECT_TRUE(parse(std::string_view(most), value));
    EXPECT_EQ(value, Limits::max());
    for (const std::string &text : {next(most), most + "0", std::string(30, '9')}) {
        value = 5;
        EXPECT_FALSE(parse(std::string_view(text), value)) << text;
        EXPECT_EQ(value, 5);
    }
    EXPECT_TRUE(parse(StrSegment("000000000000000000000000000012"), value));
    EXPECT_EQ(value, 12);
    if constexpr (Limits::is_signed) {
        const std::string least = std::to_string(Limits::min());
        EXPECT_TRUE(parse(std::string_view(least), value));
        EXPECT_EQ(value, Limits::min());
        EXPECT_FALSE(parse(std::string_view(next(least)), value));
    }
}

TYPED_TEST(StrictInteger, allowsBlanksAroundTheDigitsAlone)
{
    for (const char *text : {"12 ", " \t12", "12\t \t"}) {
        TypeParam value = 0;
        EXPECT_TRUE(parse(std::string_view(text), value)) << text;
        EXPECT_EQ(value, 12) << text;
    }
    for (const char *text :
         {"", " ", "\t", "1 2", "+1", "12\n", "\n12", "0x1", "1.", "a", "--1", "- -1", "-"}) {
        TypeParam value = 0;
        EXPECT_FALSE(parse(std::string_view(text), value)) << text;
    }
    TypeParam value = 0;
    EXPECT_FALSE(parse(StrSegment(), value));
    EXPECT_TRUE(parse(StrSegment("129", 2), value));
    EXPECT_EQ(value, 12);
    EXPECT_EQ(parse(StrSegment(" - 12 "), value), std::is_signed_v<TypeParam>);
    if constexpr (std::is_signed_v<TypeParam>) {
        EXPECT_EQ(value, -12);
    }
}

} // namespace
} // namespace velmox
