#include "util/split_acceptor.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

StrVector split(const StrSegment &text, const char *delimiter, unsigned maxSplits)
{
    StrVector pieces;
    text.splitInto(pieces, delimiter, maxSplits);
    return pieces;
}

TEST(Split, deliversPiecesUpToTheLimitAndThenTheRest)
{
    struct Case
    {
        const char *text, *delimiter;
        unsigned maxSplits;
        StrVector pieces;
    };
    const Case cases[] = {
        {"a,b,", ",", Str::kNoLimit, {"a", "b", ""}},
        {"a,b,c", ",", 1, {"a", "b,c"}},
        {"a,b,c", ",", 2, {"a", "b", "c"}},
        {"a,b,c", ",", 0, {"a,b,c"}},
        {"a,", ",", 1, {"a", ""}},
        {",", ",", Str::kNoLimit, {"", ""}},
        {"abc", ",", Str::kNoLimit, {"abc"}},
        {"", ",", Str::kNoLimit, {}},
        {"", ",", 0, {}},
        {"a::b:::c::", "::", Str::kNoLimit, {"a", "b", ":c", ""}},
        {"a:::", "::", Str::kNoLimit, {"a", ":"}},
        {"a:", "::", Str::kNoLimit, {"a:"}},
        {"abc", "", Str::kNoLimit, {"a", "b", "c"}},
        {"abc", "", 1, {"a", "bc"}},
        {"abc", "", 3, {"a", "b", "c"}},
        {"abc", "", 0, {"abc"}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(split(c.text, c.delimiter, c.maxSplits), c.pieces)
            << c.text << " at " << c.delimiter << " up to " << c.maxSplits;
    }
    EXPECT_TRUE(split(StrSegment(), ",", Str::kNoLimit).empty());
}

TEST(Split, deliversViewsIntoTheTextAndNulBytesAsAnyOther)
{
    const Str text("a\0b\0", 4);
    StrSegmentVector views;
    acceptor_PopulateStrSegmentVector acceptor(views);
    StrSegment(text).split(acceptor, '\0');
    ASSERT_EQ(views.size(), 3u);
    EXPECT_EQ(views[1].data(), text.data() + 2);
    EXPECT_EQ(views[1].view(), "b");
    EXPECT_EQ(views[2].data(), text.data() + 4);
}

TEST(SplitEscaped, closesAPieceAtEachSeparator)
{
    struct Case
    {
        const char *text;
        StrVector pieces;
    };
    const Case cases[] = {
        {"", {}},
        {"a", {}},
        {"a,b", {"a"}},
        {"a,,b,", {"a", "", "b"}},
        {"a\\,b,c\\\\,", {"a,b", "c\\"}},
        {"l\\nr\\rt\\t,", {"l\nr\rtt"}},
        {"a,b\\", {"a"}},
    };
    for (const Case &c : cases) {
        StrVector pieces{"kept"};
        EXPECT_EQ(splitEscaped(c.text, pieces, ','), c.pieces.size()) << c.text;
        pieces.erase(pieces.begin());
        EXPECT_EQ(pieces, c.pieces) << c.text;
    }
}

TEST(SplitEscaped, readsPairsThatAreClosed)
{
    struct Case
    {
        const char *text;
        bool clean;
        std::map<Str, Str> pairs;
    };
    const Case cases[] = {
        {"", true, {}},
        {"tail", true, {}},
        {"k=v=", true, {{"k", "v"}}},
        {"k=v=tail", true, {{"k", "v"}}},
        {"k=v=k=w=l==", true, {{"k", "w"}, {"l", ""}}},
        {"k\\==v\\n=", true, {{"k=", "v\n"}}},
        {"k=v", false, {}},
        {"k=v=l=w", false, {}},
    };
    for (const Case &c : cases) {
        std::map<Str, Str> pairs;
        EXPECT_EQ(splitEscapedPairs(c.text, pairs, '='), c.clean) << c.text;
        EXPECT_EQ(pairs, c.pairs) << c.text;
    }
}

} // namespace
} // namespace velmox
