#include "conf/tree/conf_path_based_pruner.h"
#include "conf/tree/conf_path_pruners.h"
#include "tests/conf/tree/tree_text.h"

namespace velmox {
namespace {

Str walked(ConfPathTrie &tree, ConfPathTriePruner &&pruner)
{
    tree.walk(pruner);
    return textOf(tree);
}

Str pruned(const Str &paths, ConfPathTriePruner &&pruner)
{
    ConfPathTrie tree = treeOf(paths);
    return walked(tree, std::move(pruner));
}

TEST(ConfPathPruners, KeepWhatIsAskedFor)
{
    const char shared[] = "nobody/a/t/s nobody/a/t/s/k nobody/a/u/s nobody/b/t";
    const Str all = Str("alice/a/t/s/k bob/a/t ") << shared;
    EXPECT_EQ(pruned(all, DoNothingPruner()), all);
    EXPECT_EQ(pruned(all, MaxDepthPruner(3)), "[alice/a/t] bob/a/t [nobody/a/t] [nobody/a/u] nobody/b/t");
    EXPECT_EQ(pruned(all, SubtriePruner(ConfPathBase("Nobody", "a", {"t"}))), "nobody/a/t/s nobody/a/t/s/k");
    EXPECT_EQ(pruned(all, SubtriePruner(ConfPathBase("nobody", "a"), 2)), "nobody/a/t/s nobody/a/u/s");
    EXPECT_EQ(pruned("nobody/a/t/s nobody/a/u/t", OneClassPruner("t")), "nobody/a/t/s");
    EXPECT_EQ(pruned("nobody/a/t/s nobody/a/u/t", OneClassPruner("t", OneClassPruner::Mode::RemoveOnly)),
              "nobody/a/u/t");
    EXPECT_EQ(pruned(all, UsersPruner()), shared);
    EXPECT_EQ(pruned(all, UsersPruner({"bob"})), Str("bob/a/t ") << shared);
    // Metadata without data goes.
    EXPECT_EQ(
        pruned("[nobody/a/t/hollow] nobody/a/t/keyed/k [nobody/a/t/keyed/l] [nobody/a/t/s/k] nobody/a/t/s "
               "[nobody/b]",
               DanglingMetadataPruner()),
        "nobody/a/t/keyed/k nobody/a/t/s [nobody/b]");
    // Apps that are off show only their state.
    EXPECT_EQ(pruned("nobody/off/app/s nobody/off/t/s nobody/on/t/app nobody/on/t/s",
                     DisabledApplicationPruner([](const Str &app) { return app == "on"; })),
              "nobody/off/app/s nobody/on/t/app nobody/on/t/s");
    // In shared storage, private data of apps that are gone goes.
    const char present[] = "alice/here/t alice/may/t nobody/gone/t";
    const Str dangling = Str("alice/gone/app ") << present;
    for (const bool isShared : {true, false}) {
        EXPECT_EQ(pruned(dangling, DanglingDataPruner(
                                       isShared, [](const Str &app) { return app == "here"; },
                                       [](const Str &app) { return app == "may"; })),
                  isShared ? Str(present) : dangling);
    }
}

TEST(ConfPathPruners, SearchesConstrainEachFieldOnce)
{
    const CapturedLog log;
    ConfSearch search;
    EXPECT_TRUE(search.constrain(ConfSearch::User, "NOBODY"));
    EXPECT_TRUE(search.constrain(ConfSearch::Type, "t"));
    EXPECT_FALSE(search.constrain(ConfSearch::Type, "u"));
    EXPECT_EQ(log.text(), "ERROR ConfSearch: Cannot constrain search with field[2] = u; field is already "
                          "constrained to t\n");
    search.setMaxLevel(4);
    const char all[] = "alice/a/t/s nobody/a/t/s/k nobody/b/t nobody/b/u/t";
    DoNothingPruner nothing;
    EXPECT_EQ(pruned(all, MatchSearchPruner(search, nothing)), "[nobody/a/t/s] nobody/b/t");
    DanglingMetadataPruner dangling;
    EXPECT_EQ(pruned(all, MatchSearchPruner(search, dangling)), "[nobody/a/t] nobody/b/t");
}

ConfPathMetadata exportedTo(ConfExport whom)
{
    ConfPathMetadata metadata;
    metadata.exported = whom;
    return metadata;
}

TEST(ContextPruners, ShowOfForeignAppsWhatTheyExport)
{
    const Str shared = "nobody/foreign/t/no/yes nobody/foreign/t/yes/k nobody/imported/t/s nobody/own/t/s "
                       "nobody/system/t/s";
    const std::set<Str> imports = {"own", "imported"};
    for (const bool hasUser : {false, true}) {
        ConfPathTrie tree = treeOf(Str("alice/imported/t/s alice/own/t/s bob/own/t/s nobody/foreign/t/no/k "
                                       "nobody/foreign/t/yes/no nobody/foreign/u/s/k ")
                                   << shared);
        nodeAt(tree, "nobody/foreign/t/yes").setMetadata(exportedTo(ConfExport::System));
        nodeAt(tree, "nobody/foreign/t/yes/no").setMetadata(exportedTo(ConfExport::None));
        nodeAt(tree, "nobody/foreign/t/no/yes").setMetadata(exportedTo(ConfExport::System));
        EXPECT_EQ(hasUser ? walked(tree, SingleUserAppContextPruner("Alice", "own", imports))
                          : walked(tree, ApplicationContextPruner("own", imports)),
                  Str(hasUser ? "alice/own/t/s " : "alice/imported/t/s alice/own/t/s bob/own/t/s ")
                      << shared);
    }
}

/// Metadata whose access is made without the table of ACLs.
ConfPathMetadata grants(ConfAcl::Capabilities capabilities)
{
    ConfPathMetadata metadata;
    metadata.access = std::make_shared<const ConfAcl>(std::move(capabilities));
    return metadata;
}

TEST(ConfPathWithACL, GrantsByNameOwnerRoleAndPermission)
{
    ConfPathMetadata metadata = grants({{"write", {"power"}}});
    metadata.setOwner("Olga");
    // who; the user of the path; whether it is allowed, and without any metadata
    const std::tuple<ConfUserContext, const char *, bool, bool> cases[] = {
        {ConfUserContext{}, "nobody", true, true},
        {ConfUserContext{"Nobody", {}, false}, "nobody", true, true},
        {ConfUserContext{"eve", {}, true}, "nobody", true, true},
        {ConfUserContext{"OLGA", {}, false}, "nobody", true, false},
        {ConfUserContext{"eve", {"user"}, false}, "nobody", false, false},
        {ConfUserContext{"eve", {"user", "power"}, false}, "nobody", true, false},
        {ConfUserContext{"eve", {"admin"}, false}, "nobody", true, true},
        {ConfUserContext{"eve", {}, false}, "eve", false, true},
    };
    for (const auto &[identity, pathUser, allowed, allowedWithoutMetadata] : cases) {
        ConfPathCached path(ConfPathBase(pathUser, "a", {"t"}), identity);
        path.metadata() = metadata;
        EXPECT_EQ(path.hasCapability(identity, "write"), allowed) << identity.name.c_str();
        path.metadata() = {};
        EXPECT_EQ(path.hasCapability(identity, "write"), allowedWithoutMetadata) << identity.name.c_str();
        path.metadata() = grants({{"write", {"*"}}});
        EXPECT_TRUE(path.hasCapability(identity, "write"));
    }
    ConfPathCached path(ConfPathBase("", "a", {"t"}), {});
    path.metadata() = metadata;
    Str reason;
    path.hasCapability({"eve", {"b", "a"}, false}, "write", &reason);
    EXPECT_EQ(reason,
              "User 'eve' with roles { a, b } cannot write: /nobody/a/t { write : [ power ] }, owner: olga");
}

TEST(PermissionPruners, RemoveWhatTheIdentityMayNot)
{
    const ConfUserContext eve{"eve", {"user"}, false};
    const ConfPathMetadata everyoneReads = grants({{"read", {"*"}}});
    ConfPathTrie tree = treeOf("eve/a/t/s nobody/a/t/closed/k nobody/a/t/open/k nobody/b/t/s/k");
    nodeAt(tree, "nobody/a").setMetadata(grants({{"read", {"boss"}}}));
    nodeAt(tree, "nobody/a/t/open").setMetadata(grants({{"read", {"user"}}}));
    nodeAt(tree, "nobody/b/t").setMetadata(everyoneReads);
    EXPECT_EQ(walked(tree, PermissionPruner(eve)), "eve/a/t/s nobody/a/t/open/k nobody/b/t/s/k");

    const ConfPathMetadata both = grants({{"read", {"*"}}, {"write", {"user"}}});
    tree = treeOf("nobody/a/t/s/k nobody/a/u/s/k");
    nodeAt(tree, "nobody").setMetadata(everyoneReads);
    nodeAt(tree, "nobody/a/t/s").setMetadata(both);
    EXPECT_EQ(walked(tree, DeletablePruner(eve)), "nobody/a/t/s/k");
    nodeAt(tree, "nobody/a/t/s").setMetadata(everyoneReads);
    nodeAt(tree, "nobody/a/t/s/k").setMetadata(both);
    EXPECT_EQ(walked(tree, DeletablePruner(eve)), "[nobody]");
    // Whoever may write to the stanza may delete no key that it cannot see.
    tree = treeOf("nobody/a/t/s/k nobody/a/t/s/l");
    nodeAt(tree, "nobody/a/t/s").setMetadata(both);
    nodeAt(tree, "nobody/a/t/s/k").setMetadata(grants({{"read", {"boss"}}}));
    EXPECT_EQ(walked(tree, DeletablePruner(eve)), "nobody/a/t/s/l");
}

} // namespace
} // namespace velmox
