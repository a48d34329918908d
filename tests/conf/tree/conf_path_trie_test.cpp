#include "conf/tree/conf_path_trie.h"
#include "conf/tree/conf_path_trie_pruner.h"
#include "util/text/str_segment.h"

#include <random>

namespace velmox {
namespace {

/// Values by their addresses, such as "a/b/c".
using Values = std::map<Str, Str>;

ConfPathTrie treeOf(const Values &values)
{
    ConfPathTrie tree;
    for (const auto &[address, value] : values) {
        StrVector parts;
        StrSegment(address.view()).splitInto(parts, "/");
        ConfPathTrie *node = &tree;
        for (const Str &part : parts) {
            node = &node->child(part);
        }
        node->setData(value);
    }
    return tree;
}

/// Notes what it sees and answers by the name of a node.
struct Recorder : ConfPathTriePruner
{
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) override
    {
        Str address;
        for (const Str &segment : segments) {
            address << (address.empty() ? "" : "/") << segment;
        }
        seen << address << " ";
        if (node.hasData()) {
            values[address] = node.data();
        }
        return segments.back() == removed   ? PruneAnswer::Remove
               : segments.back() == emptied ? PruneAnswer::KeepIfNotEmptied
                                            : PruneAnswer::Keep;
    }

    Str removed, emptied, seen;
    Values values;
};

Values valuesOf(ConfPathTrie &tree)
{
    Recorder recorder;
    tree.walk(recorder);
    return recorder.values;
}

Str dumped(const ConfPathTrie &tree)
{
    Str text;
    tree.dump(&text);
    return text;
}

TEST(ConfPathTrie, FindsNodesByPath)
{
    const ConfPathBase system("", "", {"inputs", "default"});
    EXPECT_EQ(system.toStr(), "/nobody/system/inputs/default");
    EXPECT_TRUE(system.isShared() && system.isSystemApp());
    EXPECT_TRUE(ConfPathBase("NoBody", "System").isShared());
    EXPECT_FALSE(ConfPathBase("NoBody", "System").isSystemApp());

    ConfPathTrie tree;
    ConfPathBase path("Alice", "search", {"inputs"});
    path.addPart("monitor://./x", "expanded");
    tree.node(path).setData("");
    ASSERT_NE(tree.find(ConfPathBase("alice", "search", {"inputs", "monitor://./x"})), nullptr);
    EXPECT_EQ(tree.find(path)->expansion(), "expanded");
    EXPECT_EQ(tree.child("alice").child("search").child("inputs").child("monitor://./x", "other").expansion(),
              "expanded");
    EXPECT_EQ(tree.find(ConfPathBase("alice", "Search")), nullptr);
    EXPECT_EQ(tree.find(ConfPathBase("alice", "search"))->find(path), nullptr);
    EXPECT_FALSE(tree.remove(ConfPathBase("alice", "search", {"outputs", "x"})));
    EXPECT_TRUE(tree.remove(ConfPathBase("ALICE", "search", {"inputs"})));
    EXPECT_TRUE(tree.find(ConfPathBase("alice", "search"))->empty());
}

TEST(ConfPathTrie, WalksInOrderAndDoesWhatIsAnswered)
{
    const Values values = {{"a/hollow/gone", "3"},
                           {"b/gone/x", "1"},
                           {"b/kept", "2"},
                           {"c/hollow", "4"},
                           {"c/hollow/gone", "5"}};
    ConfPathTrie tree = treeOf(values);
    tree.child("d").child("hollow");
    Recorder recorder;
    tree.walk(recorder);
    EXPECT_EQ(recorder.seen,
              "a a/hollow a/hollow/gone b b/gone b/gone/x b/kept c c/hollow c/hollow/gone d d/hollow ");
    EXPECT_EQ(recorder.values, values);
    Recorder pruner;
    pruner.removed = "gone";
    pruner.emptied = "hollow";
    tree.walk(pruner);
    EXPECT_EQ(pruner.seen, "a a/hollow a/hollow/gone b b/gone b/kept c c/hollow c/hollow/gone d d/hollow ");
    EXPECT_EQ(dumped(tree), "a\nb\n  kept = 2\nc\n  hollow = 4\nd\n");
}

TEST(ConfPathTrie, StopsAtADepth)
{
    ConfPathTrie tree = treeOf({{"a", "1"}, {"a/b", "2"}, {"a/b/c", "3"}});
    ConfPathTrie copy;
    copy.merge(tree, 2);
    tree.pruneDepth(2);
    EXPECT_EQ(dumped(copy), "a = 1\n  b = 2\n");
    EXPECT_EQ(dumped(tree), "a = 1\n  b = 2\n");
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
    ConfPathTrie first, second, merged;
    ConfPathMetadata metadata;
    metadata.exported = ConfExport::None;
    merged.setMetadata(metadata);
    metadata = stamped(1);
    metadata.removable = true;
    first.setMetadata(metadata);
    metadata = stamped(2);
    metadata.setOwner("o");
    metadata.removable = false;
    second.setMetadata(metadata);
    merged.merge(first);
    merged.merge(second);
    EXPECT_EQ(merged.metadata().toStr(), Str("{  }, export: app, owner: o, removable: yes, modtime: ")
                                             << Timeval(1).toStr());
    merged.overwrite(second);
    EXPECT_EQ(merged.metadata(), second.metadata());
}

TEST(ConfPathTrie, DiffersByContentButNotByTime)
{
    ConfPathTrie a = treeOf({{"s/k", "1"}, {"s/m", "1"}, {"t/k", "x"}});
    a.child("s").setMetadata(stamped(1));
    ConfPathTrie b, out;
    b.merge(a);
    b.child("s").setMetadata(stamped(2));
    EXPECT_FALSE(ConfPathTrie::diff(out, a, b));
    EXPECT_TRUE(out.empty());

    b.child("s").child("k").setData("2");
    b.child("s").child("k").child("new").setData("3\n4");
    b.removeChild("t");
    EXPECT_TRUE(ConfPathTrie::diff(out, a, b));
    EXPECT_EQ(dumped(out), "s\n  k = 2\n    new = 3\\n4\nt\n  k = x\n");

    b.clear();
    b.merge(a);
    b.child("s").setExpansion("e");
    ConfPathMetadata metadata;
    metadata.removable = true;
    b.child("t").setMetadata(metadata);
    out.clear();
    EXPECT_TRUE(ConfPathTrie::diff(out, a, b));
    EXPECT_EQ(dumped(out), Str("s (e) {  }, modtime: ")
                               << Timeval(1).toStr() << "\nt {  }, removable: yes\n");
}

/// Values at up to a dozen random addresses, few enough that trees overlap.
Values randomValues(std::mt19937 &random)
{
    Values values;
    for (auto count = random() % 12; count != 0; --count) {
        Str address = random() % 2 ? "a" : "b";
        for (auto levels = random() % 5; levels != 0; --levels) {
            address << (random() % 2 ? "/a" : "/b");
        }
        values[address] = Str::fromFormat("%u", static_cast<unsigned>(random()));
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
            Values values = randomValues(random);
            const ConfPathTrie tree = treeOf(values);
            merged.merge(tree);
            overwritten.overwrite(tree);
            first.insert(values.begin(), values.end());
            values.merge(last);
            last = std::move(values);
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
