#include "util/smart_filter_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace velmox;
using testing::ElementsAre;

namespace {

/// Matches the items that are multiples of a number; 0 matches nothing.
class MultipleFilter : public AbstractFilter<int>
{
public:
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

private:
    int divisor_;
    int *deleted_;
};

std::vector<std::string> order(const SmartFilterList<int> &list)
{
    std::vector<std::string> names;
    for (const AbstractFilter<int> *filter : list.filters()) {
        names.emplace_back(filter->name.c_str());
    }
    return names;
}

TEST(SmartFilterList, ResortsOnTheCallBehindTheInterval)
{
    MultipleFilter never("never", 0);
    MultipleFilter always("always", 1);
    MultipleFilter unreached("unreached", 1);
    SmartFilterList<int> list(kResortInterval, true);
    for (AbstractFilter<int> *filter : {&never, &always, &unreached}) {
        list.addFilter(filter, false);
    }
    for (int call = 1; call <= 10000; ++call) {
        ASSERT_TRUE(list.matches(call));
    }
    EXPECT_THAT(order(list), ElementsAre("never", "always", "unreached"));
    EXPECT_EQ(never.checks, 10000u);

    EXPECT_TRUE(list.matches(10001));
    EXPECT_THAT(order(list), ElementsAre("always", "never", "unreached"));
    EXPECT_EQ(never.checks, 10000u);
    EXPECT_EQ(never.hits, 0u);
    EXPECT_EQ(always.checks, 10001u);
    EXPECT_EQ(always.hits, 10001u);
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

TEST(SmartFilterList, CountsCallsOfAnEmptyListAndForgetsThemOnClear)
{
    MultipleFilter never("never", 0);
    MultipleFilter always("always", 1);
    SmartFilterList<int> list(2, true);
    EXPECT_FALSE(list.matches(1));
    list.addFilter(&never, false);
    list.addFilter(&always, false);
    list.matches(1);
    EXPECT_EQ(order(list).front(), "never");
    list.matches(1);
    EXPECT_EQ(order(list).front(), "always");

    list.matches(1);
    list.clear();
    EXPECT_FALSE(list.matches(1));
    list.addFilter(&never, false);
    list.addFilter(&always, false);
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

        AbstractFilter<int> *b = list.filters().front();
        list.addFilter(b, true);
        EXPECT_THAT(order(list), ElementsAre("a", "b"));
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 2);
}

} // namespace
