#include "util/string_filters.h"

#include <gtest/gtest.h>

using namespace velmox;

namespace {

TEST(RegexStringFilter, SearchesButNeverMatchesByAnEmptyPattern)
{
    EXPECT_TRUE(RegexStringFilter("f", "set").matches("reset"));
    EXPECT_FALSE(RegexStringFilter("f", "^set").matches("reset"));
    EXPECT_FALSE(RegexStringFilter("f", "").matches(""));
    EXPECT_THROW(RegexStringFilter("f", "("), RegexException);
}

TEST(StringPrefixFilter, ComparesUpToThePrefixOrANul)
{
    EXPECT_TRUE(StringPrefixFilter("ab", "ab").matches("abc"));
    EXPECT_TRUE(StringPrefixFilter("", "").matches(""));
    EXPECT_FALSE(StringPrefixFilter("ab", "ab").matches("a"));
    EXPECT_FALSE(StringPrefixFilter("ab", "ab").matches("Abc"));
    EXPECT_TRUE(StringPrefixFilter("n", Str("a\0b", 3)).matches(Str("a\0c", 3)));
}

TEST(RegexFilterList, NamesItsFiltersByPosition)
{
    RegexFilterList list({"x", "", "x"});
    ASSERT_EQ(list.filters().size(), 3u);
    EXPECT_EQ(list.filters()[0]->name, "pattern-0");
    EXPECT_EQ(list.filters()[2]->name, "pattern-2");
    EXPECT_TRUE(list.matches("axb"));
    EXPECT_FALSE(list.matches("y"));
    EXPECT_EQ(list.filters()[0]->checks, 2u);
    EXPECT_EQ(list.filters()[2]->checks, 1u);

    EXPECT_FALSE(RegexFilterList({}).matches("x"));
    EXPECT_THROW(RegexFilterList({"fine", "("}), RegexException);
}

} // namespace
