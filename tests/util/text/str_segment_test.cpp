#include "util/text/split_acceptor.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(Split, DeliversPiecesUpToTheLimitAndThenTheRest)
{
    const std::tuple<StrSegment, const char *, unsigned, StrVector> cases[] = {
        {"a,b,", ",", Str::kNoLimit, {"a", "b", ""}},
        {"a,b,c", ",", 1, {"a", "b,c"}},
        {"a,b,c", ",", 2, {"a", "b", "c"}},
        {"a,b,c", ",", 0, {"a,b,c"}},
        {"a,", ",", 1, {"a", ""}},
        {",", ",", Str::kNoLimit, {"", ""}},
        {"abc", ",", Str::kNoLimit, {"abc"}},
        {"", ",", Str::kNoLimit, {}},
        {"", ",", 0, {}},
        {StrSegment(), ",", Str::kNoLimit, {}},
        {"a::b:::c::", "::", Str::kNoLimit, {"a", "b", ":c", ""}},
        {"a:::", "::", Str::kNoLimit, {"a", ":"}},
        {"a:", "::", Str::kNoLimit, {"a:"}},
        {"abc", "", Str::kNoLimit, {"a", "b", "c"}},
        {"abc", "", 1, {"a", "bc"}},
        {"abc", "", 3, {"a", "b", "c"}},
        {"abc", "", 0, {"abc"}},
    };
    for (const auto &[text, delimiter, maxSplits, pieces] : cases) {
        StrVector out;
        text.splitInto(out, delimiter, maxSplits);
        EXPECT_EQ(out, pieces) << text.view() << " at " << delimiter << " up to " << maxSplits;
    }
    const Str text("a\0b\0", 4);
    StrSegmentVector views;
    acceptor_PopulateStrSegmentVector acceptor(views);
    StrSegment(text).split(acceptor, '\0');
    ASSERT_EQ(views.size(), 3u);
    EXPECT_EQ(views[1].data(), text.data() + 2);
    EXPECT_EQ(views[1].view(), "b");
    EXPECT_EQ(views[2].data(), text.data() + 4);
}

TEST(SplitEscaped, ClosesAPieceAtEachSeparator)
{
    const std::pair<Str, StrVector> cases[] = {
        {"", {}},
        {"a", {}},
        {"a,b", {"a"}},
        {"a,,b,", {"a", "", "b"}},
        {"a\\,b,c\\\\,", {"a,b", "c\\"}},
        {"l\\nr\\rt\\t,", {"l\nr\rtt"}},
        {"a,b\\", {"a"}},
    };
    for (const auto &[text, pieces] : cases) {
        StrVector out{"kept"};
        EXPECT_EQ(splitEscaped(text, out, ','), pieces.size()) << text.c_str();
        out.erase(out.begin());
        EXPECT_EQ(out, pieces) << text.c_str();
    }
}

TEST(SplitEscaped, ReadsPairsThatAreClosed)
{
    using Pairs = std::map<Str, Str>;
    const std::tuple<Str, bool, Pairs> cases[] = {
        {"", true, {}},
        {"tail", true, {}},
        {"k=v=", true, Pairs{{"k", "v"}}},
        {"k=v=tail", true, Pairs{{"k", "v"}}},
        {"k=v=k=w=l==", true, Pairs{{"k", "w"}, {"l", ""}}},
        {"k\\==v\\n=", true, Pairs{{"k=", "v\n"}}},
        {"k=v", false, {}},
        {"k=v=l=w", false, {}},
    };
    for (const auto &[text, clean, pairs] : cases) {
        Pairs out;
        EXPECT_EQ(splitEscapedPairs(text, out, '='), clean) << text.c_str();
        EXPECT_EQ(out, pairs) << text.c_str();
    }
}

} // namespace
} // namespace velmox
