#include "conf/tree/conf_path_trie.h"
#include "tests/conf/tree/tree_text.h"

namespace velmox {
namespace {

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
    EXPECT_EQ(tree.child("alice").child("search").child("inputs").child("monitor://./x", "other").expansion(),
              "expanded");
    EXPECT_EQ(tree.find(ConfPathBase("alice", "Search")), nullptr);
    EXPECT_FALSE(tree.remove(ConfPathBase("alice", "search", {"outputs", "x"})));
    EXPECT_TRUE(tree.remove(ConfPathBase("ALICE", "search", {"inputs"})));
    EXPECT_EQ(textOf(tree), "[alice/search]");
}

/// Notes what it sees and answers by the name of a node.
struct Recorder : ConfPathTriePruner
{
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &) override
    {
        for (const Str &segment : segments) {
            seen << (&segment == &segments.front() ? " " : "/") << segment;
        }
        return segments.back() == "gone"     ? PruneAnswer::Remove
               : segments.back() == "hollow" ? PruneAnswer::KeepIfNotEmptied
                                             : PruneAnswer::Keep;
    }

    Str seen;
};

TEST(ConfPathTrie, WalksInOrderAndDoesWhatIsAnswered)
{
    ConfPathTrie tree = treeOf("[d/hollow] c/hollow=4 c/hollow/gone=5 b/kept=2 b/gone/x=1 a/hollow/gone=3");
    Recorder pruner;
    tree.walk(pruner);
    EXPECT_EQ(pruner.seen, " a a/hollow a/hollow/gone b b/gone b/kept c c/hollow c/hollow/gone d d/hollow");
    EXPECT_EQ(textOf(tree), "[a] b/kept=2 c/hollow=4 [d]");
}

TEST(ConfPathTrie, OfTreesThatAreMergedTheFirstWinsAtEachAddress)
{
    const char first[] = "a=1 a/b=2 a/b/x/y=3 [c] [d]";
    const char second[] = "a=9 a/b/x=4 a/e=5 c=6 d/f=7";
    ConfPathTrie moved = treeOf(first);
    moved.merge(treeOf(second));
    EXPECT_EQ(textOf(moved), "a=1 a/b=2 a/b/x=4 a/b/x/y=3 a/e=5 c=6 d/f=7");
    const ConfPathTrie other = treeOf(second);
    ConfPathTrie copied = treeOf(first);
    copied.merge(other);
    EXPECT_EQ(textOf(copied), textOf(moved));
    EXPECT_EQ(textOf(other), second);
    copied.overwrite(other);
    EXPECT_EQ(textOf(copied), "a=9 a/b=2 a/b/x=4 a/b/x/y=3 a/e=5 c=6 d/f=7");

    ConfPathTrie top;
    top.merge(copied, 2);
    EXPECT_EQ(textOf(top), "a=9 a/b=2 a/e=5 c=6 d/f=7");
    copied.pruneDepth(1);
    EXPECT_EQ(textOf(copied), "a=9 c=6 [d]");
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
    metadata.setOwner("O");
    metadata.removable = false;
    second.setMetadata(metadata);
    merged.merge(first);
    merged.merge(second);
    EXPECT_EQ(merged.metadata().toStr(), Str("{  }, export: app, owner: o, removable: yes, modtime: ")
                                             << Timeval(1).toStr());
    merged.overwrite(second);
    EXPECT_EQ(merged.metadata(), second.metadata());
}

TEST(ConfPathMetadata, HandsDownAllButWhatIsTheNodesOwn)
{
    ConfPathMetadata above = stamped(1);
    above.removable = true;
    above.exported = ConfExport::System;
    above.setOwner("top");
    above.setImports({"a"});
    ConfPathMetadata below = above;
    below.overlay({});
    EXPECT_EQ(below.toStr(), "{  }, export: global, imports: { a }, owner: top");
    ConfPathMetadata own;
    own.setOwner("mid");
    own.removable = false;
    above.overlay(own);
    EXPECT_EQ(above.toStr(), "{  }, export: global, imports: { a }, owner: mid, removable: no");
}

TEST(ConfPathTrie, DiffersByContentButNotByTime)
{
    ConfPathTrie a = treeOf("s/k=1 s/m=1 t/k=x");
    a.child("s").setMetadata(stamped(1));
    ConfPathTrie b, out;
    b.merge(a);
    b.child("s").setMetadata(stamped(2));
    EXPECT_FALSE(ConfPathTrie::diff(out, a, b));
    EXPECT_TRUE(out.empty());

    b.child("s").child("k").setData("2");
    b.child("s").child("k").child("new").setData("3\n4");
    b.child("s").setExpansion("e");
    b.removeChild("t");
    ConfPathMetadata metadata;
    metadata.removable = true;
    b.child("s").child("m").setMetadata(metadata);
    EXPECT_TRUE(ConfPathTrie::diff(out, a, b));
    EXPECT_EQ(out.toStr(), Str("s (e) {  }, modtime: ") << Timeval(2).toStr()
                                                        << "\n  k = 2\n    new = 3\\n4\n"
                                                           "  m = 1 {  }, removable: yes\nt\n  k = x\n");
}

} // namespace
} // namespace velmox
