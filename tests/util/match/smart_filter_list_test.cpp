#include "util/match/string_filters.h"

namespace velmox {
namespace {

/// Matches the multiples of a number; 0 matches nothing.
struct MultipleFilter : AbstractFilter<int>
{
    MultipleFilter(const char *filterName, int divisor, int *deleted = nullptr)
        : AbstractFilter(filterName), divisor_(divisor), deleted_(deleted)
    {
    }
    ~MultipleFilter() override
    {
        if (deleted_ != nullptr) {
            ++*deleted_;
        }
    }
    bool matches(const int &item) override { return divisor_ != 0 && item % divisor_ == 0; }

    int divisor_;
    int *deleted_;
};

StrVector order(const SmartFilterList<int> &list)
{
    StrVector names;
    for (const AbstractFilter<int> *filter : list.filters()) {
        names.push_back(filter->name);
    }
    return names;
}

TEST(SmartFilterList, ResortsOnTheCallBehindTheInterval)
{
    MultipleFilter never("never", 0);
    MultipleFilter always("always", 1);
    MultipleFilter unreached("unreached", 1);
    SmartFilterList<int> list(kResortInterval, true);
    EXPECT_FALSE(list.matches(0)) << "counts, too";
    for (AbstractFilter<int> *filter : {&never, &always, &unreached}) {
        list.addFilter(filter, false);
    }
    for (int call = 2; call <= 10000; ++call) {
        ASSERT_TRUE(list.matches(call));
    }
    EXPECT_THAT(order(list), ElementsAre("never", "always", "unreached"));
    EXPECT_TRUE(list.matches(10001));
    EXPECT_THAT(order(list), ElementsAre("always", "never", "unreached"));
    EXPECT_EQ(never.checks, 9999u);
    EXPECT_EQ(always.hits, 10000u);
    EXPECT_EQ(unreached.checks, 0u);

    // A filter that comes to the front meanwhile waits for the next turn, 10001 calls later.
    always.hits = 0;
    never.hits = 10000;
    for (int call = 1; call <= 10000; ++call) {
        list.matches(call);
    }
    EXPECT_EQ(order(list).front(), "always");
    list.matches(1);
    EXPECT_EQ(order(list).front(), "never");
}

TEST(SmartFilterList, ReplacesByNameAndDeletesWhatItOwns)
{
    int deleted = 0;
    MultipleFilter borrowed("a", 2, &deleted);
    {
        SmartFilterList<int> list(kResortInterval, true);
        list.addFilter(nullptr, true);
        list.addFilter(new MultipleFilter("a", 1, &deleted), true);
        list.addFilter(new MultipleFilter("b", 3, &deleted), true);
        list.addFilter(&borrowed, false);
        EXPECT_THAT(order(list), ElementsAre("b", "a"));
        EXPECT_EQ(list.byName().size(), 2u);
        EXPECT_FALSE(list.matches(5));
        EXPECT_TRUE(list.matches(4));
        list.addFilter(list.filters().front(), true);
        EXPECT_THAT(order(list), ElementsAre("a", "b"));
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 2);
}

TEST(StringFilters, SearchByAPatternAndCompareAPrefix)
{
    EXPECT_TRUE(RegexStringFilter("f", "set").matches("reset"));
    EXPECT_FALSE(RegexStringFilter("f", "^set").matches("reset"));
    EXPECT_FALSE(RegexStringFilter("f", "").matches(""));
    EXPECT_THROW(RegexStringFilter("f", "("), RegexException);
    EXPECT_TRUE(StringPrefixFilter("ab", "ab").matches("abc"));
    EXPECT_TRUE(StringPrefixFilter("", "").matches(""));
    EXPECT_FALSE(StringPrefixFilter("ab", "ab").matches("a"));
    EXPECT_FALSE(StringPrefixFilter("ab", "ab").matches("Abc"));
    EXPECT_TRUE(StringPrefixFilter("n", Str("a\0b", 3)).matches(Str("a\0c", 3)));
}

TEST(RegexFilterList, NamesItsFiltersByPosition)
{
    RegexFilterList list({"x", "", "x"});
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
} // namespace velmox
