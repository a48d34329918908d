#include "util/text/str_segment.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <limits>
#include <optional>

namespace velmox {
namespace {

TEST(StrNumber, ConvertsWholeTextsByTheLibrarysRule)
{
    constexpr long long kDefault = -77;
    const std::tuple<Str, int, long long> cases[] = {
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
        {{"1\0", 2}, 10, kDefault},
        {"9223372036854775807", 10, std::numeric_limits<long long>::max()},
        {"9223372036854775808", 10, kDefault},
        {"-9223372036854775808", 10, std::numeric_limits<long long>::min()},
        {"-9223372036854775809", 10, kDefault},
    };
    for (const auto &[text, base, value] : cases) {
        EXPECT_EQ(text.toInt64(kDefault, base), value) << text.c_str();
    }
    const std::tuple<Str, int, unsigned long long> unsignedCases[] = {
        {"18446744073709551615", 10, ~0ull},
        {"18446744073709551616", 10, 77},
        {" \n5", 10, 5},
        {"FF", 16, 255},
        {"-1", 10, 77},
        {" \t-1", 10, 77},
        {"-0", 10, 77},
        {"", 10, 77},
        {"5 ", 10, 77},
        {" ", 10, 77},
    };
    for (const auto &[text, base, value] : unsignedCases) {
        EXPECT_EQ(text.toUInt64(77, base), value) << text.c_str();
    }
}

TEST(StrNumber, ReportsIntegersBeyond32BitsAsRangeErrors)
{
    using Limits = std::numeric_limits<int>;
    const std::tuple<const char *, bool, int> cases[] = {
        {"2147483647", true, Limits::max()},
        {"2147483648", false, Limits::max()},
        {"-2147483648", true, Limits::min()},
        {"-2147483649", false, Limits::min()},
        {"99999999999999999999", false, Limits::max()},
    };
    for (const auto &[text, fits, expected] : cases) {
        int value = 0;
        EXPECT_EQ(StrSegment(text).toInt(value), fits) << text;
        EXPECT_EQ(errno == ERANGE, !fits) << text;
        EXPECT_EQ(value, expected) << text;
        EXPECT_EQ(Str(text).toInt(-7), fits ? expected : -7) << text;
    }
    int untouched = 3;
    EXPECT_FALSE(StrSegment("12x").toInt(untouched));
    EXPECT_FALSE(StrSegment().toInt(untouched));
    EXPECT_EQ(untouched, 3);
    EXPECT_TRUE(StrSegment("123456", 3).toInt(untouched)) << "the view ends where it says";
    EXPECT_EQ(untouched, 123);
}

TEST(StrNumber, ReadsBooleans)
{
    const std::pair<std::vector<const char *>, int> cases[] = {
        {{"t", "TRUE", "Yes", "1"}, 1},
        {{"F", "false", "nO", "0"}, 0},
        {{"2", "01", "on", "tru", "true ", "y", "n"}, -1},
    };
    for (const auto &[texts, expected] : cases) {
        for (const char *text : texts) {
            bool value = expected == 0;
            EXPECT_EQ(Str(text).toBool(value), expected >= 0) << text;
            EXPECT_TRUE(expected < 0 || value == (expected == 1)) << text;
            EXPECT_EQ(Str(text).toBool(false, true), expected != 0) << text;
            EXPECT_EQ(Str(text).toBool(true, false), expected == 1) << text;
        }
    }
    EXPECT_TRUE(Str().toBool(true, false));
    EXPECT_FALSE(Str().toBool(false, true));
}

/// Expects the value, or a refusal when it is not given.
template <class Integer>
void expectStrict(const StrSegment &text, std::optional<Integer> expected)
{
    Integer value = 5;
    bool parsed;
    if constexpr (std::is_signed_v<Integer>) {
        parsed = text.parseSigned(value);
    } else {
        parsed = text.parseUnsigned(value);
    }
    EXPECT_EQ(parsed, expected.has_value()) << text.view() << " of " << sizeof(Integer);
    EXPECT_EQ(value, expected.value_or(5)) << text.view() << " of " << sizeof(Integer);
}

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

template <class Integer>
void expectStrictParser()
{
    using Limits = std::numeric_limits<Integer>;
    const std::string most = std::to_string(Limits::max());
    const std::string least = std::to_string(Limits::min());
    expectStrict<Integer>(std::string_view(most), Limits::max());
    expectStrict<Integer>(std::string_view(least), Limits::min());
    expectStrict<Integer>(StrSegment("129", 2), Integer{12});
    expectStrict<Integer>(StrSegment(), std::nullopt);
    for (const char *text : {"000000000000000000000000000012", "12 ", " \t12", "12\t \t"}) {
        expectStrict<Integer>(text, Integer{12});
    }
    for (const std::string &text :
         {std::string(), std::string(" "), std::string("\t"), next(most), most + "0", std::string(30, '9'),
          Limits::is_signed ? next(least) : "-1"}) {
        expectStrict<Integer>(std::string_view(text), std::nullopt);
    }
    for (const char *text : {"1 2", "+1", "12\n", "\n12", "0x1", "1.", "a", "--1", "- -1", "-"}) {
        expectStrict<Integer>(text, std::nullopt);
    }
    const auto minusTwelve = static_cast<Integer>(-12);
    expectStrict<Integer>(" - 12 ", Limits::is_signed ? std::optional(minusTwelve) : std::nullopt);
}

TEST(StrNumber, ParsesStrictlyWithinTheLimitsOfEachType)
{
    expectStrictParser<std::int8_t>();
    expectStrictParser<std::int16_t>();
    expectStrictParser<std::int32_t>();
    expectStrictParser<std::int64_t>();
    expectStrictParser<std::uint8_t>();
    expectStrictParser<std::uint16_t>();
    expectStrictParser<std::uint32_t>();
    expectStrictParser<std::uint64_t>();
}

} // namespace
} // namespace velmox
