#include "conf/tree/conf_path_pruners.h"
#include "conf/tree/context_pruners.h"
#include "conf/tree/permission_pruner.h"
#include "tests/support/captured_log.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

ConfPathTrie &nodeAt(ConfPathTrie &tree, std::string_view path)
{
    StrVector parts;
    StrSegment(path).splitInto(parts, "/");
    ConfPathTrie *node = &tree;
    for (const Str &part : parts) {
        node = &node->child(part);
    }
    return *node;
}

/// A tree with a value at each path; a path in brackets is a node without one.
ConfPathTrie treeOf(const StrVector &paths)
{
    ConfPathTrie tree;
    for (const Str &path : paths) {
        if (path.front() == '[') {
            nodeAt(tree, path.view().substr(1, path.size() - 2));
        } else {
            nodeAt(tree, path).setData("");
        }
    }
    return tree;
}

/// All nodes without children, and those with data.
class Lister : public SimpleConfPathTriePruner
{
public:
    StrVector paths;

private:
    bool shouldPrune(const StrVector &segments, ConfPathTrie &node) override
    {
        Str path;
        for (const Str &segment : segments) {
            path << (path.empty() ? "" : "/") << segment;
        }
        if (node.hasData()) {
            paths.push_back(path);
        } else if (node.children().empty()) {
            paths.push_back(Str("[") << path << "]");
        }
        return false;
    }
};

StrVector listed(ConfPathTrie &tree)
{
    Lister lister;
    tree.walk(lister);
    return lister.paths;
}

StrVector pruned(ConfPathTriePruner &pruner, const StrVector &paths)
{
    ConfPathTrie tree = treeOf(paths);
    tree.walk(pruner);
    return listed(tree);
}

TEST(ConfPathPruners, KeepWhatIsAskedFor)
{
    const StrVector all = {"alice/a/t/s/k",  "bob/a/t",      "nobody/a/t/s",
                           "nobody/a/t/s/k", "nobody/a/u/s", "nobody/b/t"};
    DoNothingPruner nothing;
    EXPECT_EQ(pruned(nothing, all), all);
    MaxDepthPruner depth(3);
    EXPECT_EQ(pruned(depth, all),
              (StrVector{"[alice/a/t]", "bob/a/t", "[nobody/a/t]", "[nobody/a/u]", "nobody/b/t"}));
    SubtriePruner subtrie(ConfPathBase("Nobody", "a", {"t"}));
    EXPECT_EQ(pruned(subtrie, all), (StrVector{"nobody/a/t/s", "nobody/a/t/s/k"}));
    SubtriePruner shallow(ConfPathBase("nobody", "a"), 2);
    EXPECT_EQ(pruned(shallow, all), (StrVector{"nobody/a/t/s", "nobody/a/u/s"}));
    OneClassPruner only("t");
    EXPECT_EQ(pruned(only, {"nobody/a/t/s", "nobody/a/u/t"}), (StrVector{"nobody/a/t/s"}));
    OneClassPruner without("t", OneClassPruner::Mode::RemoveOnly);
    EXPECT_EQ(pruned(without, {"nobody/a/t/s", "nobody/a/u/t"}), (StrVector{"nobody/a/u/t"}));
    UsersPruner shared;
    EXPECT_EQ(pruned(shared, all), (StrVector(all.begin() + 2, all.end())));
    UsersPruner users({"bob"});
    EXPECT_EQ(pruned(users, all), (StrVector(all.begin() + 1, all.end())));
}

TEST(ConfPathPruners, SearchesConstrainEachFieldOnce)
{
    const testing::CapturedLog log;
    ConfSearch search;
    EXPECT_TRUE(search.constrain(ConfSearch::User, "NOBODY"));
    EXPECT_TRUE(search.constrain(ConfSearch::Type, "t"));
    EXPECT_FALSE(search.constrain(ConfSearch::Type, "u"));
    EXPECT_EQ(
        log.text(),
        "ERROR ConfSearch: Cannot constrain search with field[2] = u; field is already constrained to t\n");
    search.setMaxLevel(4);
    const StrVector all = {"alice/a/t/s", "nobody/a/t/s/k", "nobody/b/t", "nobody/b/u/t"};
    DoNothingPruner nothing;
    MatchSearchPruner matching(search, nothing);
    EXPECT_EQ(pruned(matching, all), (StrVector{"[nobody/a/t/s]", "nobody/b/t"}));
    DanglingMetadataPruner dangling;
    MatchSearchPruner both(search, dangling);
    EXPECT_EQ(pruned(both, all), (StrVector{"[nobody/a/t]", "nobody/b/t"}));
}

TEST(ConfPathPruners, MetadataWithoutDataGoes)
{
    DanglingMetadataPruner pruner;
    EXPECT_EQ(pruned(pruner, {"[nobody/a/t/hollow]", "nobody/a/t/keyed/k", "[nobody/a/t/keyed/l]",
                              "[nobody/a/t/s/k]", "nobody/a/t/s", "[nobody/b]"}),
              (StrVector{"nobody/a/t/keyed/k", "nobody/a/t/s", "[nobody/b]"}));
}

TEST(ConfPathPruners, AppsThatAreOffShowOnlyTheirState)
{
    DisabledApplicationPruner pruner([](const Str &app) { return app == "on"; });
    EXPECT_EQ(pruned(pruner, {"nobody/off/app/s", "nobody/off/t/s", "nobody/on/t/app", "nobody/on/t/s"}),
              (StrVector{"nobody/off/app/s", "nobody/on/t/app", "nobody/on/t/s"}));
}

TEST(ConfPathPruners, PrivateDataOfAppsThatAreGoneGoes)
{
    const StrVector all = {"alice/gone/app", "alice/here/t", "alice/may/t", "nobody/gone/t"};
    const AppPredicate isKnown = [](const Str &app) { return app == "here"; };
    const AppPredicate mayDangle = [](const Str &app) { return app == "may"; };
    DanglingDataPruner shared(true, isKnown, mayDangle);
    EXPECT_EQ(pruned(shared, all), (StrVector(all.begin() + 1, all.end())));
    DanglingDataPruner single(false, isKnown, mayDangle);
    EXPECT_EQ(pruned(single, all), all);
}

ConfPathMetadata exportedTo(ConfExport whom)
{
    ConfPathMetadata metadata;
    metadata.exported = whom;
    return metadata;
}

TEST(ContextPruners, ShowOfForeignAppsWhatTheyExport)
{
    const StrVector all = {"alice/imported/t/s",      "alice/own/t/s",           "bob/own/t/s",
                           "nobody/foreign/t/no/k",   "nobody/foreign/t/no/yes", "nobody/foreign/t/yes/k",
                           "nobody/foreign/t/yes/no", "nobody/foreign/u/s/k",    "nobody/imported/t/s",
                           "nobody/own/t/s",          "nobody/system/t/s"};
    ConfPathTrie tree = treeOf(all);
    const ConfPathMetadata toAll = exportedTo(ConfExport::System);
    nodeAt(tree, "nobody/foreign/t/yes").setMetadata(toAll);
    nodeAt(tree, "nobody/foreign/t/yes/no").setMetadata(exportedTo(ConfExport::None));
    nodeAt(tree, "nobody/foreign/t/no/yes").setMetadata(toAll);
    ConfPathTrie copy;
    copy.merge(tree);

    ApplicationContextPruner app("own", {"own", "imported"});
    tree.walk(app);
    EXPECT_EQ(listed(tree), (StrVector{"alice/imported/t/s", "alice/own/t/s", "bob/own/t/s",
                                       "nobody/foreign/t/no/yes", "nobody/foreign/t/yes/k",
                                       "nobody/imported/t/s", "nobody/own/t/s", "nobody/system/t/s"}));
    SingleUserAppContextPruner user("Alice", "own", {"own", "imported"});
    copy.walk(user);
    EXPECT_EQ(listed(copy), (StrVector{"alice/own/t/s", "nobody/foreign/t/no/yes", "nobody/foreign/t/yes/k",
                                       "nobody/imported/t/s", "nobody/own/t/s", "nobody/system/t/s"}));
}

/// Notes the paths that it is told, with expansion, owner and whether they are removable.
class PathRecorder : public ConfPathBasedPruner
{
public:
    StrVector seen;

private:
    bool visitPath(const ConfPathCached &path, ConfPathTrie &) override
    {
        Str text = path.toStr();
        if (!path.parts().empty()) {
            text << " " << path.expansions().back();
        }
        const ConfPathMetadata &metadata = path.metadata();
        text << " " << (metadata.owner ? *metadata.owner : Str("-")) << " "
             << (metadata.removable ? "r" : "-");
        seen.push_back(text);
        return false;
    }
};

TEST(ConfPathBasedPruner, GathersMetadataOnItsWay)
{
    ConfPathTrie tree;
    ConfPathMetadata metadata;
    metadata.setOwner("top");
    nodeAt(tree, "Alice/a").setMetadata(metadata);
    metadata.removable = true;
    metadata.setOwner("mid");
    nodeAt(tree, "Alice/a/t/s").setMetadata(metadata);
    nodeAt(tree, "Alice/a/t/s").setExpansion("e");
    nodeAt(tree, "Alice/a/t/s/k");
    nodeAt(tree, "Alice/b/u");
    PathRecorder recorder;
    tree.walk(recorder);
    EXPECT_EQ(recorder.seen, (StrVector{"/alice/a top -", "/alice/a/t  top -", "/alice/a/t/s e mid r",
                                        "/alice/a/t/s/k  mid -", "/alice/b - -", "/alice/b/u  - -"}));
}

/// Metadata whose access lets one role have one capability; made without the table of ACLs.
ConfPathMetadata grants(const char *capability, const char *role)
{
    ConfPathMetadata metadata;
    metadata.access = std::make_shared<const ConfAcl>(ConfAcl::Capabilities{{capability, {role}}});
    return metadata;
}

TEST(ConfPathWithACL, GrantsByNameOwnerRoleAndPermission)
{
    struct Case
    {
        ConfUserContext identity;
        const char *pathUser;
        bool allowed;
    };
    ConfPathMetadata metadata = grants("write", "power");
    metadata.setOwner("Olga");
    const Case cases[] = {
        {{}, "nobody", true},
        {{"Nobody", {}, false}, "nobody", true},
        {{"eve", {}, true}, "nobody", true},
        {{"OLGA", {}, false}, "nobody", true},
        {{"eve", {"user"}, false}, "nobody", false},
        {{"eve", {"user", "power"}, false}, "nobody", true},
        {{"eve", {"admin"}, false}, "nobody", true},
        {{"eve", {}, false}, "eve", false},
    };
    for (const Case &c : cases) {
        ConfPathCached path(ConfPathBase(c.pathUser, "a", {"t"}), c.identity);
        path.metadata() = metadata;
        EXPECT_EQ(path.hasCapability(c.identity, "write"), c.allowed) << c.identity.name.c_str();
        path.metadata() = {};
        EXPECT_EQ(path.hasCapability(c.identity, "write"), c.identity.isUnrestricted() ||
                                                               c.identity.roles.contains("admin") ||
                                                               c.identity.name == c.pathUser)
            << c.identity.name.c_str();
        path.metadata() = grants("write", "*");
        EXPECT_TRUE(path.hasCapability(c.identity, "write"));
    }
    ConfPathCached path(ConfPathBase("", "a", {"t"}), {});
    path.metadata() = metadata;
    Str reason;
    path.hasCapability({"eve", {"b", "a"}, false}, "write", &reason);
    EXPECT_EQ(reason,
              "User 'eve' with roles { a, b } cannot write: /nobody/a/t { write : [ power ] }, owner: olga");
    path.hasCapability({"eve", {"power"}, false}, "write", &reason);
    EXPECT_EQ(reason,
              "User 'eve' with roles { power }  write: /nobody/a/t { write : [ power ] }, owner: olga");
}

TEST(PermissionPruners, RemoveWhatTheIdentityMayNot)
{
    const StrVector all = {"eve/a/t/s", "nobody/a/t/closed/k", "nobody/a/t/open/k", "nobody/b/t/s/k"};
    ConfPathTrie tree = treeOf(all);
    nodeAt(tree, "nobody/a").setMetadata(grants("read", "boss"));
    nodeAt(tree, "nobody/a/t/open").setMetadata(grants("read", "user"));
    nodeAt(tree, "nobody/b/t").setMetadata(grants("read", "*"));
    PermissionPruner readable({"eve", {"user"}, false});
    tree.walk(readable);
    EXPECT_EQ(listed(tree), (StrVector{"eve/a/t/s", "nobody/a/t/open/k", "nobody/b/t/s/k"}));

    tree = treeOf({"nobody/a/t/s/k", "nobody/a/u/s/k"});
    ConfPathMetadata both;
    both.access =
        std::make_shared<const ConfAcl>(ConfAcl::Capabilities{{"read", {"*"}}, {"write", {"user"}}});
    nodeAt(tree, "nobody").setMetadata(grants("read", "*"));
    nodeAt(tree, "nobody/a/t/s").setMetadata(both);
    DeletablePruner deletable({"eve", {"user"}, false});
    tree.walk(deletable);
    EXPECT_EQ(listed(tree), (StrVector{"nobody/a/t/s/k"}));
    nodeAt(tree, "nobody/a/t/s").setMetadata(grants("read", "*"));
    nodeAt(tree, "nobody/a/t/s/k").setMetadata(both);
    tree.walk(deletable);
    EXPECT_EQ(listed(tree), (StrVector{"[nobody]"}));
}

} // namespace
} // namespace velmox
