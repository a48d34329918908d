#include "conf/tree/conf_path_trie.h"
#include "conf/tree/conf_path_trie_pruner.h"

#include <gtest/gtest.h>
#include <random>

namespace velmox {
namespace {

using Values = std::map<StrVector, Str>;

ConfPathTrie treeOf(const Values &values)
{
    ConfPathTrie tree;
    for (const auto &[segments, value] : values) {
        ConfPathTrie *node = &tree;
        for (const Str &segment : segments) {
            node = &node->child(segment);
        }
        node->setData(value);
    }
    return tree;
}

/// Notes what it sees and answers by a node's data.
class Recorder : public ConfPathTriePruner
{
public:
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) override
    {
        for (const Str &segment : segments) {
            seen << "/" << segment;
        }
        seen << " ";
        if (node.hasData()) {
            values[segments] = node.data();
        }
        return remove.contains(segments.back())    ? PruneAnswer::Remove
               : emptied.contains(segments.back()) ? PruneAnswer::KeepIfNotEmptied
                                                   : PruneAnswer::Keep;
    }

    std::set<Str> remove, emptied;
    Str seen;
    Values values;
};

Values valuesOf(ConfPathTrie &tree)
{
    Recorder recorder;
    tree.walk(recorder);
    return recorder.values;
}

TEST(ConfPathBase, KnowsItsAddress)
{
    ConfPathBase path("", "", {"inputs", "default"});
    EXPECT_EQ(path.toStr(), "/nobody/system/inputs/default");
    EXPECT_TRUE(path.isShared());
    EXPECT_TRUE(path.isSystemApp());
    EXPECT_EQ(path.expansions().size(), 2u);
    path = ConfPathBase("NoBody", "System");
    EXPECT_TRUE(path.isShared());
    EXPECT_FALSE(path.isSystemApp());
    EXPECT_EQ(path.type(), "");
    EXPECT_EQ(path.toStr(), "/NoBody/System");
}

TEST(ConfPathTrie, FindsNodesByPath)
{
    ConfPathTrie tree;
    ConfPathBase path("Alice", "search", {"inputs"});
    path.addPart("monitor://./x", "expanded");
    tree.node(path).setData("");
    ASSERT_NE(tree.find(ConfPathBase("alice", "search", {"inputs", "monitor://./x"})), nullptr);
    EXPECT_EQ(tree.find(path)->expansion(), "expanded");
    EXPECT_EQ(tree.child("alice").child("search").child("inputs").child("monitor://./x", "other").expansion(),
              "expanded");
    EXPECT_EQ(tree.find(ConfPathBase("alice", "Search")), nullptr);
    EXPECT_TRUE(tree.find(ConfPathBase("alice", "search"))->find(path) == nullptr);
    EXPECT_FALSE(tree.remove(ConfPathBase("alice", "search", {"outputs", "x"})));
    EXPECT_TRUE(tree.remove(ConfPathBase("ALICE", "search", {"inputs"})));
    EXPECT_TRUE(tree.find(ConfPathBase("alice", "search"))->empty());
}

TEST(ConfPathTrie, WalksInOrderAndDoesWhatIsAnswered)
{
    const Values values = {{{"b", "gone", "x"}, "1"},
                           {{"b", "kept"}, "2"},
                           {{"a", "hollow", "gone"}, "3"},
                           {{"c", "hollow"}, "4"},
                           {{"c", "hollow", "gone"}, "5"}};
    ConfPathTrie tree = treeOf(values);
    tree.child("d").child("hollow");
    Recorder recorder;
    tree.walk(recorder);
    EXPECT_EQ(recorder.seen, "/a /a/hollow /a/hollow/gone /b /b/gone /b/gone/x /b/kept /c /c/hollow "
                             "/c/hollow/gone /d /d/hollow ");
    EXPECT_EQ(recorder.values, values);

    recorder.seen.clear();
    recorder.remove = {"gone"};
    recorder.emptied = {"hollow"};
    tree.walk(recorder);
    EXPECT_EQ(recorder.seen,
              "/a /a/hollow /a/hollow/gone /b /b/gone /b/kept /c /c/hollow /c/hollow/gone /d /d/hollow ");
    EXPECT_TRUE(tree.child("a").children().empty());
    EXPECT_TRUE(tree.child("d").children().empty());
    EXPECT_EQ(valuesOf(tree), (Values{{{"b", "kept"}, "2"}, {{"c", "hollow"}, "4"}}));
}

TEST(ConfPathTrie, StopsAtADepth)
{
    const Values values = {{{"a"}, "1"}, {{"a", "b"}, "2"}, {{"a", "b", "c"}, "3"}};
    ConfPathTrie tree = treeOf(values);
    ConfPathTrie copy;
    copy.merge(tree, 2);
    tree.pruneDepth(2);
    const Values expected = {{{"a"}, "1"}, {{"a", "b"}, "2"}};
    EXPECT_EQ(valuesOf(copy), expected);
    EXPECT_EQ(valuesOf(tree), expected);
    tree.pruneDepth(0);
    EXPECT_TRUE(tree.empty());
}

ConfPathMetadata stamped(std::uint64_t time)
{
    ConfPathMetadata metadata;
    metadata.modtime = Timeval(time);
    return metadata;
}

TEST(ConfPathTrie, MergedMetadataIsCompleted)
{
    ConfPathTrie first, second;
    ConfPathMetadata metadata = stamped(1);
    metadata.removable = true;
    first.setMetadata(metadata);
    metadata = stamped(2);
    metadata.setOwner("o");
    metadata.removable = false;
    second.setMetadata(metadata);
    ConfPathTrie merged;
    merged.merge(first);
    merged.merge(second);
    EXPECT_EQ(merged.metadata().toStr(), Str("{  }, owner: o, removable: yes, modtime: ")
                                             << Timeval(1).toStr());
    merged.overwrite(second);
    EXPECT_EQ(merged.metadata(), second.metadata());
}

TEST(ConfPathTrie, DiffersByContentButNotByTime)
{
    ConfPathTrie a = treeOf({{{"s", "k"}, "1"}, {{"s", "m"}, "1"}, {{"t", "k"}, "x"}});
    a.child("s").setMetadata(stamped(1));
    ConfPathTrie b;
    b.merge(a);
    b.child("s").setMetadata(stamped(2));
    ConfPathTrie out;
    EXPECT_FALSE(ConfPathTrie::diff(out, a, b));
    EXPECT_TRUE(out.empty());

    b.child("s").child("k").setData("2");
    b.child("s").child("k").child("new").setData("3\n4");
    b.removeChild("t");
    EXPECT_TRUE(ConfPathTrie::diff(out, a, b));
    Str text;
    out.dump(&text);
    EXPECT_EQ(text, "s\n"
                    "  k = 2\n"
                    "    new = 3\\n4\n"
                    "t\n"
                    "  k = x\n");

    b = ConfPathTrie();
    b.merge(a);
    b.child("s").setExpansion("e");
    ConfPathMetadata metadata;
    metadata.removable = true;
    b.child("t").setMetadata(metadata);
    out.clear();
    EXPECT_TRUE(ConfPathTrie::diff(out, a, b));
    text.clear();
    out.dump(&text);
    EXPECT_EQ(text, Str("s (e) {  }, modtime: ") << Timeval(1).toStr() << "\nt {  }, removable: yes\n");
}

/// Values at up to a dozen random addresses, few enough that trees overlap.
Values randomValues(std::mt19937 &random)
{
    Values values;
    for (auto count = random() % 12; count != 0; --count) {
        StrVector segments(1 + random() % 5);
        for (Str &segment : segments) {
            segment = Str(1, static_cast<char>('a' + random() % 2));
        }
        values[segments] = Str::fromFormat("%u", static_cast<unsigned>(random()));
    }
    return values;
}

TEST(ConfPathTrie, TheFirstTreeMergedInWinsAtEachAddress)
{
    for (unsigned seed = 0; seed < 500; ++seed) {
        std::mt19937 random(seed);
        ConfPathTrie merged, overwritten;
        Values first, last;
        for (int layer = 0; layer < 4; ++layer) {
            const Values values = randomValues(random);
            const ConfPathTrie tree = treeOf(values);
            merged.merge(tree);
            overwritten.overwrite(tree);
            first.insert(values.begin(), values.end());
            for (const auto &[segments, value] : values) {
                last[segments] = value;
            }
        }
        ASSERT_EQ(valuesOf(merged), first) << "seed " << seed;
        ASSERT_EQ(valuesOf(overwritten), last) << "seed " << seed;
        ConfPathTrie out;
        EXPECT_EQ(ConfPathTrie::diff(out, merged, overwritten), first != last) << "seed " << seed;
        merged.overwrite(out);
        EXPECT_EQ(valuesOf(merged), last) << "seed " << seed;
    }
}

} // namespace
} // namespace velmox
