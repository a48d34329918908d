#include <cerrno>

namespace velmox {
namespace {

TEST(StrNumber, ConvertsWholeTextsByTheLibrarysRule)
{
    using Limits = std::numeric_limits<long long>;
    const std::tuple<Str, int, long long> cases[] = {{" \t\n12", 10, 12},
                                                     {"-12", 10, -12},
                                                     {"0x1F", 0, 31},
                                                     {"017", 0, 15},
                                                     {"9223372036854775807", 10, Limits::max()},
                                                     {"-9223372036854775808", 10, Limits::min()}};
    for (const auto &[text, base, value] : cases) {
        EXPECT_EQ(text.toInt64(-77, base), value) << text.c_str();
    }
    for (const Str text : {"12 "sv, ""sv, " "sv, "-"sv, "1 2"sv, "0x1F"sv, "1\0"sv, "9223372036854775808"sv,
                           "-9223372036854775809"sv}) {
        EXPECT_EQ(text.toInt64(-77), -77) << text.c_str();
    }
    EXPECT_EQ(Str("18446744073709551615").toUInt64(77), ~0ull);
    for (const char *text : {"18446744073709551616", "-1", " \t-1", "-0", "", "5 ", " "}) {
        EXPECT_EQ(Str(text).toUInt64(77), 77u) << text;
    }
}

TEST(StrNumber, ReportsIntegersBeyond32BitsAsRangeErrors)
{
    using Limits = std::numeric_limits<int>;
    const std::tuple<const char *, bool, int> cases[] = {{"2147483647", true, Limits::max()},
                                                         {"2147483648", false, Limits::max()},
                                                         {"-2147483648", true, Limits::min()},
                                                         {"-99999999999999999999", false, Limits::min()}};
    for (const auto &[text, fits, expected] : cases) {
        int value = 0;
        EXPECT_EQ(StrSegment(text).toInt(value), fits) << text;
        EXPECT_EQ(errno == ERANGE, !fits) << text;
        EXPECT_EQ(value, expected) << text;
        EXPECT_EQ(Str(text).toInt(-7), fits ? expected : -7) << text;
    }
    int value = 3;
    EXPECT_FALSE(StrSegment("12x").toInt(value) || StrSegment().toInt(value) || value != 3);
    EXPECT_TRUE(StrSegment("123456", 3).toInt(value) && value == 123) << "the view ends where it says";
}

TEST(StrNumber, ReadsBooleans)
{
    const std::pair<std::vector<const char *>, int> cases[] = {
        {{"t", "TRUE", "Yes", "1"}, 1},
        {{"F", "false", "nO", "0"}, 0},
        {{"2", "01", "on", "tru", "true ", "y", "n"}, -1}};
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
struct StrictParser : Test
{
    /// The value, or none for a refusal, which leaves the target alone.
    static std::optional<Integer> parse(const StrSegment &text)
    {
        Integer value = 5;
        bool parsed;
        if constexpr (std::is_signed_v<Integer>) {
            parsed = text.parseSigned(value);
        } else {
            parsed = text.parseUnsigned(value);
        }
        EXPECT_TRUE(parsed || value == 5) << text.view();
        return parsed ? std::optional(value) : std::nullopt;
    }
};

using Integers = Types<std::int8_t, std::int16_t, std::int32_t, std::int64_t, std::uint8_t, std::uint16_t,
                       std::uint32_t, std::uint64_t>;
TYPED_TEST_SUITE(StrictParser, Integers);

TYPED_TEST(StrictParser, TakesDecimalsWithinTheLimitsOfTheType)
{
    using Limits = std::numeric_limits<TypeParam>;
    const std::string most = std::to_string(Limits::max());
    const std::string least = std::to_string(Limits::min());
    EXPECT_EQ(this->parse(std::string_view(most)), Limits::max());
    EXPECT_EQ(this->parse(std::string_view(least)), Limits::min());
    for (const char *text : {"000000000000000000000000000012", "12 ", " \t12", "12\t \t"}) {
        EXPECT_EQ(this->parse(text), TypeParam{12}) << text;
    }
    EXPECT_EQ(this->parse(StrSegment("129", 2)), TypeParam{12});
    EXPECT_EQ(this->parse(" - 12 ").has_value(), Limits::is_signed);
    EXPECT_EQ(this->parse(" - 12 ").value_or(static_cast<TypeParam>(-12)), static_cast<TypeParam>(-12));
    for (const std::string &text : {""s, " "s, "\t"s, next(most), most + "0", std::string(30, '9'),
                                    Limits::is_signed ? next(least) : "-1"s, "1 2"s, "+1"s, "12\n"s, "\n12"s,
                                    "0x1"s, "1."s, "a"s, "--1"s, "- -1"s, "-"s}) {
        EXPECT_EQ(this->parse(std::string_view(text)), std::nullopt) << text;
    }
    EXPECT_EQ(this->parse(StrSegment()), std::nullopt);
}

} // namespace
} // namespace velmox
