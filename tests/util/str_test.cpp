#include "util/str.h"
#include "util/str_segment.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace velmox {
namespace {

TEST(Str, holdsFifteenBytesInlineAndAlwaysEndsInNul)
{
    Str text;
    EXPECT_EQ(text.capacity(), 15u);
    for (std::size_t length = 0; length < 40; ++length) {
        EXPECT_EQ(text.c_str()[text.size()], '\0');
        EXPECT_EQ(text.capacity() > 15, length > 15);
        text.push_back('x');
    }
    const Str copy = text;
    text[0] = 'y';
    EXPECT_EQ(copy[0], 'x') << "a copy is its own";
}

TEST(Str, refusesPositionsPastTheEndAndImpossibleLengths)
{
    Str text("abc");
    // Volatile, or the compiler warns of what is tried here.
    const volatile std::size_t tooLong = Str::npos - 4;
    const volatile std::size_t past = 4;
    EXPECT_EQ(text.substr(3), "");
    const auto message = [](auto operation) -> std::string {
        try {
            operation();
        } catch (const std::exception &exception) {
            return exception.what();
        }
        return "";
    };
    EXPECT_EQ(message([&] { (void)text.substr(past); }), "invalid string position");
    EXPECT_EQ(message([&] { text.erase(past); }), "invalid string position");
    EXPECT_EQ(message([&] { (void)text.at(past); }), "invalid string position");
    EXPECT_EQ(message([&] { text.reserve(tooLong); }), "string too long");
    EXPECT_EQ(message([&] { text.append(tooLong, 'x'); }), "string too long");
    EXPECT_EQ(message([&] { text.replace(past, 0, "x"); }), "invalid string position");
    EXPECT_EQ(message([&] { Str(tooLong, 'x'); }), "string too long");
    EXPECT_EQ(message([&] { Str("x", tooLong); }), "string too long");
    EXPECT_EQ(message([&] { text.assign(std::string_view("x", tooLong)); }), "string too long");
    EXPECT_EQ(message([&] { text.replace(0, 1, std::string_view("x", tooLong)); }), "string too long");
    EXPECT_EQ(text, "abc");
}

TEST(Str, findsTheFirstByteInsideOrOutsideASet)
{
    const Str text("  \xFFyz");
    EXPECT_EQ(text.findFirst(CharSet::blanks(), 0, true), 0);
    EXPECT_EQ(text.findFirst(CharSet::blanks(), 0, false), 2);
    EXPECT_EQ(text.findFirst(CharSet("\xFF"), 0, true), 2);
    EXPECT_EQ(text.findFirst(CharSet::blanks(), 2, true), -1);
    EXPECT_EQ(text.findFirst(CharSet::blanks(), 5, false), -1);
    EXPECT_EQ(text.findFirst(CharSet::blanks(), 6, false), -1);
}

TEST(Str, comparesWholeTextsAndPrefixes)
{
    const Str text("ab\0c", 4);
    EXPECT_FALSE(text.equals("ab"));
    EXPECT_TRUE(Str("ab").equals("ab"));
    EXPECT_TRUE(text.startsWith("ab\0c", 4));
    EXPECT_TRUE(text.startsWith("", 0));
    EXPECT_FALSE(text.startsWith("ab\0cd", 5));
}

TEST(Str, replacesLeftToRightBehindWhatItPutIn)
{
    struct Case
    {
        const char *text, *find, *with;
        std::size_t count;
        const char *result;
    };
    for (const Case &c : std::initializer_list<Case>{{"aaaa", "aa", "a", 2, "aa"},
                                                     {"aaa", "aa", "b", 1, "ba"},
                                                     {"a.b.", ".", "..", 2, "a..b.."},
                                                     {"abc", "", "x", 0, "abc"},
                                                     {"abc", "abcd", "x", 0, "abc"},
                                                     {"abc", "abc", "", 1, ""}}) {
        Str text(c.text);
        EXPECT_EQ(text.replaceAll(c.find, c.with), c.count) << c.text;
        EXPECT_EQ(text, c.result);
    }
    Str self("ab");
    EXPECT_EQ(self.replaceAll(self, "x"), 1u);
    EXPECT_EQ(self, "x");
    Str path("a/b\\c/");
    EXPECT_EQ(path.replaceChars(CharSet("/\\"), '_'), 3u);
    EXPECT_EQ(path, "a_b_c_");
}

TEST(Str, trimsTheChosenEnds)
{
    for (const char *text : {" \tab c\t ", "ab c", "", " ", "\t \t"}) {
        Str both(text);
        both.trim();
        EXPECT_EQ(both, Str(text).contains("a") ? "ab c" : "");
        EXPECT_EQ(Str(text).trimmed(), both);
    }
    EXPECT_EQ(Str(" a ").trimmed(CharSet::blanks(), true, false), "a ");
    EXPECT_EQ(Str(" a ").trimmed(CharSet::blanks(), false, true), " a");
    EXPECT_EQ(Str("  ").trimmed(CharSet::blanks(), false, true), "");
    EXPECT_EQ(Str("a\r\n").trimmed(CharSet::lineEnds()), "a");
    EXPECT_TRUE(StrSegment().trimmed().empty());
}

TEST(Str, unquotesOnlyAPair)
{
    const std::pair<const char *, const char *> cases[] = {
        {"\"a\"", "a"}, {"\"\"", ""}, {"\"", "\""}, {"\"a", "\"a"}, {"a\"", "a\""}, {"", ""}, {"'a'", "'a'"},
    };
    for (const auto &[quoted, plain] : cases) {
        Str text(quoted);
        text.unquote('"');
        EXPECT_EQ(text, plain) << quoted;
    }
}

TEST(Str, writesNumbersAsTheirPlainConversions)
{
    Str text;
    text << Str("s") << "c" << 'b' << u"\u00E4" << StrSegment("seg") << std::runtime_error("what") << ' '
         << true << false << ' ' << static_cast<short>(-32768) << ' ' << static_cast<unsigned short>(65535)
         << ' ' << -2147483647 - 1 << ' ' << 4294967295u << ' ' << -5l << ' ' << 5ul << ' '
         << -9223372036854775807ll - 1 << ' ' << 18446744073709551615ull << ' ' << 1.5;
    EXPECT_EQ(text, "scb\u00E4segwhat 10 -32768 65535 -2147483648 4294967295 -5 5 -9223372036854775808 "
                    "18446744073709551615 1.500000");
    EXPECT_EQ(Str::concat("left", "right"), "leftright");
}

} // namespace
} // namespace velmox
