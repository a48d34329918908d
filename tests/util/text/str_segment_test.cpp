namespace velmox {
namespace {

TEST(Split, DeliversPiecesUpToTheLimitAndThenTheRest)
{
    constexpr unsigned kAll = Str::kNoLimit;
    const std::tuple<StrSegment, const char *, unsigned, StrVector> cases[] = {
        {"a,b,", ",", kAll, {"a", "b", ""}},
        {"a,b,c", ",", 1, {"a", "b,c"}},
        {"a,b,c", ",", 0, {"a,b,c"}},
        {",", ",", kAll, {"", ""}},
        {"", ",", kAll, {}},
        {StrSegment(), ",", kAll, {}},
        {"a::b:::c::", "::", kAll, {"a", "b", ":c", ""}},
        {"a:::", "::", kAll, {"a", ":"}},
        {"abc", "", kAll, {"a", "b", "c"}},
        {"abc", "", 1, {"a", "bc"}},
        {"abc", "", 0, {"abc"}}};
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
}

// No installed program calls these.
TEST(SplitEscaped, ClosesAPieceAtEachSeparator)
{
    const std::pair<Str, StrVector> cases[] = {{"", {}},
                                               {"a", {}},
                                               {"a,,b,", {"a", "", "b"}},
                                               {"a\\,b,c\\\\,", {"a,b", "c\\"}},
                                               {"l\\nr\\rt\\t,", {"l\nr\rtt"}},
                                               {"a,b\\", {"a"}}};
    for (const auto &[text, pieces] : cases) {
        StrVector out;
        EXPECT_EQ(splitEscaped(text, out, ','), pieces.size()) << text.c_str();
        EXPECT_EQ(out, pieces) << text.c_str();
    }
    using Pairs = std::map<Str, Str>;
    const std::tuple<Str, bool, Pairs> pairs[] = {{"tail", true, {}},
                                                  {"k=v=tail", true, Pairs{{"k", "v"}}},
                                                  {"k=v=k=w=l==", true, Pairs{{"k", "w"}, {"l", ""}}},
                                                  {"k\\==v\\n=", true, Pairs{{"k=", "v\n"}}},
                                                  {"k=v=l=w", false, {}}};
    for (const auto &[text, clean, expected] : pairs) {
        Pairs out;
        EXPECT_EQ(splitEscapedPairs(text, out, '='), clean) << text.c_str();
        EXPECT_EQ(out, expected) << text.c_str();
    }
}

} // namespace
} // namespace velmox
