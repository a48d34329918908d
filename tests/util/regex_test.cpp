#include "util/regex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcre.h>

using namespace velmox;
using testing::HasSubstr;

namespace {

std::string messageOf(auto &&call)
{
    try {
        call();
    } catch (const RegexException &exception) {
        return exception.what();
    }
    return "nothing thrown";
}

Regex compiled(const char *pattern, int flags = 0)
{
    Regex regex;
    regex.compile(pattern, true, flags);
    return regex;
}

TEST(Regex, SearchesAndMatchesWholeSubjects)
{
    struct Case
    {
        const char *pattern;
        int flags;
        const char *subject;
        bool found;
        bool full;
    };
    const Case cases[] = {
        {"set", 0, "reset", true, false},
        {"set", 0, "set", true, true},
        {"SET", PCRE_CASELESS, "set", true, true},
        {"set", 0, "SET", false, false},
        {"abc|abcd", 0, "abcd", true, true},
        {"abc|abcd", 0, "abcde", true, false},
        {"b", 0, "ab", true, false},
        {"a\\z|b", 0, "a\n", false, false},
        {"a$", 0, "a\n", true, false},
        {"", 0, "x", true, false},
        {"", 0, "", true, true},
        {"^.$", 0, "\xC3\xA9", true, true},
        {".+", 0, "a\r\nb", true, false},
        {".+", PCRE_DOTALL, "a\r\nb", true, true},
        // The comment swallows the bracket of the wrapped form: the plain pattern has to span the subject.
        {"abc # trailing", PCRE_EXTENDED, "abc", true, true},
        {"abc # trailing", PCRE_EXTENDED, "abcd", true, false},
        {"abc|abcd # trailing", PCRE_EXTENDED, "abcd", true, false},
        {"\\Qa.b", 0, "a.b", true, true},
    };
    for (const Case &c : cases) {
        const Regex regex = compiled(c.pattern, c.flags);
        EXPECT_EQ(regex.match(Str(c.subject)), c.found) << c.pattern << " on " << c.subject;
        EXPECT_EQ(regex.match(Str(c.subject), nullptr, false, true), c.full)
            << "full: " << c.pattern << " on " << c.subject;
        const Str subject(c.subject);
        EXPECT_EQ(regex.findAt(subject.data(), static_cast<unsigned>(subject.size()), false, true),
                  c.full ? 0 : -1)
            << c.pattern;
    }
}

TEST(Regex, EmptyPatternDependsOnTheRoadIn)
{
    EXPECT_FALSE(Regex().match(Str("")));
    EXPECT_FALSE(Regex("", true, 0).match(Str("")));
    EXPECT_FALSE(Regex().partialMatch(Str("")));
    EXPECT_EQ(Regex().findAt("", 0, false, false), -1);
    EXPECT_TRUE(compiled("").match(Str("anything")));
}

TEST(Regex, RefusesABadPatternAndDropsTheOldOne)
{
    Regex regex = compiled("(?<n>a)");
    EXPECT_EQ(messageOf([&] { regex.compile("a(", true, 0); }), "Regex: missing )");
    EXPECT_FALSE(regex.match(Str("a")));
    EXPECT_EQ(regex.captureCount(), 0);
    EXPECT_TRUE(regex.groupNames().empty());
    EXPECT_THAT(messageOf([] { Regex("\xFF", true, 0); }), HasSubstr("Regex: "));
}

TEST(Regex, MovesAndRecompilesFromItsOwnText)
{
    Regex first = compiled("(a+)b");
    Regex second = std::move(first);
    EXPECT_TRUE(second.match(Str("aab"), nullptr, false, true));
    EXPECT_FALSE(first.match(Str("aab")));
    second.compile(second.pattern(), false, 0);
    EXPECT_EQ(second.pattern(), "(a+)b");
    EXPECT_TRUE(second.match(Str("aab")));
    second.clear();
    EXPECT_TRUE(second.pattern().empty());
    EXPECT_FALSE(second.match(Str("aab")));
}

TEST(Regex, KnowsWhetherItIsAnchored)
{
    EXPECT_TRUE(compiled("^a").isAnchored());
    EXPECT_TRUE(compiled("a", PCRE_ANCHORED).isAnchored());
    EXPECT_FALSE(compiled("a").isAnchored());
    EXPECT_FALSE(compiled("^a|b").isAnchored());
}

TEST(Regex, ReportsGroupsAsViews)
{
    const Regex regex = compiled("(a)|(b)");
    RegexMatch match;
    const Str subject("xxb!");
    ASSERT_TRUE(regex.match(subject, &match));
    EXPECT_TRUE(match.matched());
    EXPECT_EQ(match.group(0).data(), subject.data() + 2);
    ASSERT_EQ(match.groupCount(), 2u);
    EXPECT_TRUE(match.group(1).isNull());
    EXPECT_EQ(match.group(2), StrSegment("b"));
    EXPECT_EQ(match.start(), 2u);
    EXPECT_EQ(match.end(), 3u);
    EXPECT_EQ(match.prefix(), StrSegment("xx"));
    EXPECT_EQ(messageOf([&] { match.group(3); }), "IndexOutOfBounds Exception: idx = 2, size = 2");

    EXPECT_FALSE(regex.match(Str("c"), &match));
    EXPECT_FALSE(match.matched());
    EXPECT_EQ(match.groupCount(), 0u);
}

TEST(Regex, KeepsToTheOffsetsThatPcreWrites)
{
    // More groups than the output vector has pairs.
    Str pattern;
    for (int i = 0; i < 600; ++i) {
        pattern.append("(a?)");
    }
    const Str subject("aab");
    RegexMatch match;
    ASSERT_TRUE(compiled(pattern.c_str()).match(subject, &match));
    ASSERT_EQ(match.groupCount(), 600u);
    EXPECT_EQ(match.group(2), StrSegment("a"));
    EXPECT_EQ(match.group(340).size(), 0u);
    EXPECT_TRUE(match.group(600).isNull());

    ASSERT_TRUE(compiled("(?=ab\\K)").match(subject, &match));
    EXPECT_EQ(match.group(0).size(), 0u);
}

TEST(Regex, CollectsNamedGroupsThatAreSet)
{
    const Regex regex = compiled("(?J)(?<x>a)?(?<y>b)(?<z>c)(?<z>d)");
    RegexMatch match;
    std::map<Str, Str> names{{"left", "over"}};
    const Str subject("bcd");
    ASSERT_TRUE(regex.match(subject, &match));
    match.namedGroups(names);
    EXPECT_EQ(names, (std::map<Str, Str>{{"y", "b"}, {"z", "d"}}));
    match.clear();
    match.namedGroups(names);
    EXPECT_TRUE(names.empty());
}

TEST(Regex, ConsumesItsWayThroughASubject)
{
    const Regex word = compiled("\\s*(\\w+)");
    const Str text("one  two ");
    StrSegment rest(text);
    RegexMatch match;
    ASSERT_TRUE(word.match(rest, &match, true));
    EXPECT_EQ(match.group(1), StrSegment("one"));
    ASSERT_TRUE(word.match(rest, &match, true));
    EXPECT_EQ(match.group(1), StrSegment("two"));
    EXPECT_EQ(match.prefix(), StrSegment(""));
    EXPECT_FALSE(word.match(rest, &match, true));
    EXPECT_EQ(rest, StrSegment(" "));

    StrSegment none;
    const Regex anything = compiled("");
    EXPECT_TRUE(anything.match(none));
    EXPECT_FALSE(anything.match(none, nullptr, true));
    EXPECT_TRUE(anything.match(none, nullptr, true, true));
}

TEST(Regex, MatchesPartially)
{
    const Regex date = compiled("(\\d{4})-(\\d\\d)");
    const Str unfinished("at 2024-0");
    const Str whole("2024-05");
    RegexMatch match;
    EXPECT_TRUE(date.partialMatch(unfinished, &match));
    EXPECT_EQ(match.group(0), StrSegment("2024-0"));
    EXPECT_TRUE(match.group(1).isNull());
    EXPECT_TRUE(date.partialMatch(whole, &match));
    EXPECT_EQ(match.group(2), StrSegment("05"));
    EXPECT_FALSE(date.partialMatch(Str("2024/"), &match));
    EXPECT_FALSE(match.matched());
}

TEST(Regex, FindsOffsets)
{
    const Regex regex = compiled("b+");
    EXPECT_EQ(regex.findAt("aabb", 4, false, false), 2);
    EXPECT_EQ(regex.findAt("aabb", 2, false, false), -1);
    EXPECT_EQ(regex.findAt("aabb", 4, true, false), -1);
    EXPECT_EQ(regex.findAt("bba", 3, true, false), 0);
    EXPECT_EQ(regex.findAt(nullptr, 0, false, false), -1);
}

TEST(Regex, ReadsAnExhaustedMatchLimitAsNoMatch)
{
    const Str subject(40, 'a');
    EXPECT_FALSE(compiled("(*LIMIT_MATCH=1000)(a+)+b").match(subject));
    EXPECT_FALSE(compiled("(*LIMIT_MATCH=10)(?:a|b)+").match(subject));
    EXPECT_TRUE(compiled("(?:a|b)+").match(subject));
}

TEST(Regex, EscapesWhatCouldBeSyntax)
{
    Str text("a_Z9.\\\xC3\xA9 \n-*");
    text.push_back('\0');
    Str pattern;
    Regex::escape(text, pattern);
    EXPECT_EQ(pattern, "a_Z9\\.\\\\\xC3\xA9\\ \\\n\\-\\*\\0");
    EXPECT_TRUE(compiled(pattern.c_str()).match(text, nullptr, false, true));
}

} // namespace
