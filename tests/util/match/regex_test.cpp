#include "util/match/regex.h"

#include <pcre.h>

namespace velmox {
namespace {

Regex compiled(const Str &pattern, int flags = 0)
{
    Regex regex;
    regex.compile(pattern, true, flags);
    return regex;
}

TEST(Regex, SearchesAndMatchesWholeSubjects)
{
    const std::tuple<const char *, int, Str, bool, bool> cases[] = {
        {"set", 0, "reset", true, false},
        {"set", 0, "set", true, true},
        {"SET", PCRE_CASELESS, "set", true, true},
        {"abc|abcd", 0, "abcd", true, true},
        {"abc|abcd", 0, "abcde", true, false},
        {"a\\z|b", 0, "a\n", false, false},
        {"a$", 0, "a\n", true, false},
        {"", 0, "", true, true},
        {"^.$", 0, "\xC3\xA9", true, true},
        {".+", 0, "a\r\nb", true, false},
        {".+", PCRE_DOTALL, "a\r\nb", true, true},
        // Where all characters are taken for any, PCRE has a look-ahead of them begin at the start alone.
        {"(?=.*)ab", 0, "xab", true, false},
        // The comment swallows the bracket of the wrapped form: the plain pattern has to span the subject.
        {"abc # trailing", PCRE_EXTENDED, "abc", true, true},
        {"abc # trailing", PCRE_EXTENDED, "abcd", true, false},
        {"abc|abcd # trailing", PCRE_EXTENDED, "abcd", true, false},
        {"\\Qa.b", 0, "a.b", true, true},
        // Whether a group took part counts though nobody asks for it, as far behind as it may stand.
        {"(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)\\11", 0, "abcdefghijkk", true, true},
        {"(?J)(?<n>a)?(b)(c)(d)(e)(f)(g)(h)(i)(j)(?<n>k)(?(<n>)X|Y)", 0, "bcdefghijkX", true, true},
        // An exhausted limit reads as no match.
        {"(*LIMIT_RECURSION=100)((a|b)*)*", 0, Str(1000, 'a'), false, false},
        {"(*LIMIT_MATCH=1000)(a+)+b", 0, Str(40, 'a'), false, false},
        {"(*LIMIT_MATCH=10)(?:a|b)+", 0, Str(40, 'a'), false, false},
        {"(?:a|b)+", 0, Str(40, 'a'), true, true},
    };
    for (const auto &[pattern, flags, subject, found, full] : cases) {
        const Regex regex = compiled(pattern, flags);
        const auto size = static_cast<unsigned>(subject.size());
        EXPECT_EQ(regex.match(subject), found) << pattern << " on " << subject.c_str();
        EXPECT_EQ(regex.finds(subject), found) << pattern << " on " << subject.c_str();
        EXPECT_EQ(regex.match(subject, nullptr, false, true), full) << pattern << " on " << subject.c_str();
        EXPECT_EQ(regex.matchesAll(subject), full) << pattern << " on " << subject.c_str();
        EXPECT_EQ(regex.findAt(subject.data(), size, false, true), full ? 0 : -1) << pattern;
    }
}

TEST(Regex, MatchesNothingByAnEmptyPatternUnlessItIsCompiled)
{
    EXPECT_FALSE(Regex().match(Str("")));
    EXPECT_FALSE(Regex("", true, 0).match(Str("")));
    EXPECT_EQ(Regex().findAt("", 0, false, false), -1);
    EXPECT_TRUE(compiled("").match(Str("anything")));
}

TEST(Regex, MovesAndIsLeftEmptyByWhatDoesNotCompile)
{
    Regex first = compiled("(a+)b");
    Regex second = std::move(first);
    EXPECT_FALSE(first.matchesAll("aab"));
    EXPECT_TRUE(second.matchesAll("aab"));
    second.compile(second.pattern(), false, 0);
    EXPECT_TRUE(second.matchesAll("aab"));
    EXPECT_EQ(raisedBy<RegexException>([&] { second.compile("a(", true, 0); }), "Regex: missing )");
    EXPECT_FALSE(second.finds("aab"));
    EXPECT_TRUE(raisedBy<RegexException>([] { Regex("\xFF", true, 0); }).startsWith("Regex: "));
}

TEST(Regex, ReportsGroupsAsViews)
{
    const Regex regex = compiled("(a)|(b)");
    RegexMatch match;
    const Str subject("xxb!");
    ASSERT_TRUE(regex.match(subject, &match) && match.matched());
    EXPECT_EQ(match.group(0).data(), subject.data() + 2);
    ASSERT_EQ(match.groupCount(), 2u);
    EXPECT_TRUE(match.group(1).isNull());
    EXPECT_EQ(match.group(2), StrSegment("b"));
    EXPECT_EQ(match.start(), 2u);
    EXPECT_EQ(match.end(), 3u);
    EXPECT_EQ(match.prefix(), StrSegment("xx"));
    EXPECT_EQ(raisedBy([&] { match.group(3); }), "IndexOutOfBounds Exception: idx = 2, size = 2");
    EXPECT_FALSE(regex.match(Str("c"), &match) || match.matched());
    EXPECT_EQ(match.groupCount(), 0u);

    // More groups than the output vector has pairs.
    Str pattern;
    for (int i = 0; i < 600; ++i) {
        pattern.append("(a?)");
    }
    const Str as("aab");
    ASSERT_TRUE(compiled(pattern).match(as, &match));
    EXPECT_EQ(match.group(2), StrSegment("a"));
    EXPECT_TRUE(match.group(600).isNull());
    ASSERT_TRUE(compiled("(?=ab\\K)").match(as, &match));
    EXPECT_EQ(match.group(0).size(), 0u);
}

TEST(Regex, ConsumesItsWayThroughASubject)
{
    const Regex word = compiled("\\s*(\\w+)");
    const Str text("one  two ");
    StrSegment rest(text);
    RegexMatch match;
    for (const char *expected : {"one", "two"}) {
        ASSERT_TRUE(word.match(rest, &match, true));
        EXPECT_EQ(match.group(1), StrSegment(expected));
        EXPECT_EQ(match.prefix(), StrSegment(""));
    }
    EXPECT_FALSE(word.match(rest, &match, true));
    EXPECT_EQ(rest, StrSegment(" "));
    StrSegment none;
    EXPECT_FALSE(compiled("").match(none, nullptr, true));
}

// No installed program asks for these.
TEST(Regex, MatchesPartiallyAndTellsNames)
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
    EXPECT_FALSE(date.partialMatch(Str("2024/"), &match) || match.matched());

    const Regex named = compiled("(?J)(?<x>a)?(?<y>b)(?<z>c)(?<z>d)");
    std::map<Str, Str> names{{"left", "over"}};
    const Str subject("bcd");
    ASSERT_TRUE(named.match(subject, &match));
    match.namedGroups(names);
    EXPECT_EQ(names, (std::map<Str, Str>{{"y", "b"}, {"z", "d"}}));
    EXPECT_TRUE(compiled("^a").isAnchored() && !compiled("^a|b").isAnchored());
}

TEST(Regex, EscapesWhatCouldBeSyntax)
{
    const Str text("a_Z9.\\\xC3\xA9 \n-*\0", 13);
    Str pattern;
    Regex::escape(text, pattern);
    EXPECT_EQ(pattern, "a_Z9\\.\\\\\xC3\xA9\\ \\\n\\-\\*\\0");
    EXPECT_TRUE(compiled(pattern).matchesAll(text));
}

} // namespace
} // namespace velmox
