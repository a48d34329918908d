#include "conf/setup/path_pattern.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(PathPattern, MatchesLevelByLevel)
{
    const struct
    {
        const char16_t *pattern;
        const char16_t *path;
        bool matches;
    } cases[] = {
        {u"C:\\apps\\*\\local", u"C:\\apps\\search\\local", true},
        {u"C:\\Apps\\*\\LOCAL", u"c:\\apps\\\u00C4pp\\local", true},
        {u"C:\\apps\\\u00C4*", u"C:\\apps\\\u00E4pp", true},
        {u"C:\\apps\\*\\local", u"C:\\apps\\a\\b\\local", false},
        {u"C:\\apps\\*\\local", u"C:\\apps\\local", false},
        {u"C:\\apps\\*", u"C:\\apps\\..", false},
        {u"C:\\apps\\.*", u"C:\\apps\\..", false},
        {u"C:\\apps\\.*", u"C:\\apps\\.git", true},
        {u"C:\\x\\*.meta", u"C:\\x\\local.meta", true},
        {u"C:\\x\\*.meta", u"C:\\x\\local.meta.bak", false},
        {u"C:\\x\\a*b*ab", u"C:\\x\\acbab", true},
        {u"C:\\x\\a*b*ab", u"C:\\x\\aba", false},
        {u"C:\\x\\*ab*", u"C:\\x\\aab", true},
        {u"C:\\x\\a.c", u"C:\\x\\abc", false},
        {u"C:\\x\\[a]?", u"C:\\x\\[A]?", true},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(matchesPathPattern(each.path, each.pattern), each.matches)
            << Str::fromUtf16(each.pattern).c_str() << " " << Str::fromUtf16(each.path).c_str();
    }
}

TEST(PathPattern, TellsLevelsBelowAFolder)
{
    std::vector<Pathname> levels = {u"left over"};
    EXPECT_TRUE(levelsBelow(u"c:\\ETC\\apps\\Search\\local", u"C:\\etc\\apps", levels));
    EXPECT_EQ(levels, (std::vector<Pathname>{u"Search", u"local"}));
    EXPECT_TRUE(levelsBelow(u"C:\\etc", u"C:\\etc", levels));
    EXPECT_TRUE(levels.empty());
    EXPECT_FALSE(levelsBelow(u"C:\\etc2", u"C:\\etc", levels));
    EXPECT_FALSE(levelsBelow(u"C:", u"C:\\etc", levels));
    EXPECT_EQ(cleanedPath(u"C:/etc//apps\\/x/"), u"C:\\etc\\apps\\x");
}

} // namespace
} // namespace velmox
