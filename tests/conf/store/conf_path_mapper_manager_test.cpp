#include "conf/ground/conf_exceptions.h"
#include "conf/root/path_owner.h"
#include "conf/root/username_mapper.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "tests/conf/conf_root.h"

namespace velmox {
namespace {

constexpr unsigned kData = ConfPathMapperManager::Data;
constexpr unsigned kMetadata = ConfPathMapperManager::Metadata;

/// The path that a mapper serves, below the root.
Str placeOf(const ConfRoot &root, const IConfPathMapper &mapper)
{
    const Str text = replaced(mapper.describe(), root.path().toStr() << "\\", "ROOT/");
    const std::size_t at = text.find("ROOT/");
    return at == Str::npos ? text : replaced(text.substr(at + 5), "\\", "/");
}

/// In reading order, with a blank behind each.
Str placesOf(const ConfRoot &root)
{
    Str places;
    for (const IConfPathMapper *const mapper : root.shared().mappers().mappers()) {
        places << placeOf(root, *mapper) << " ";
    }
    return places;
}

void makeFolders(const ConfRoot &root, std::initializer_list<const char *> names)
{
    for (const char *const name : names) {
        root.makeFolder(name);
    }
}

TEST(ConfPathMapperManager, ReadsInTheOrderOfTheBootstrapFile)
{
    const ConfRoot root;
    makeFolders(root, {"system/local", "apps/b/local", "apps/a/default", "apps/a/local", "apps/b/default",
                       "apps/.git/local", "users/Alice/a/local", "slave-apps/c/default",
                       "users/_reserved/unknown.0/a/local"});
    for (const char *const file :
         {"a/metadata/local.meta", "a/metadata/default.meta", "a/metadata/other.meta", "stray"}) {
        root.write(Str("apps/") << file, "");
    }
    EXPECT_EQ(placesOf(root), "system/local users/Alice/a/local apps/.git/local apps/a/local apps/b/local "
                              "apps/a/metadata/local.meta slave-apps/c/default apps/a/default apps/b/default "
                              "apps/a/metadata/default.meta system/default ");
    EXPECT_FALSE(root.shared().mappers().scan()) << "nobody has the one safe name";
    EXPECT_EQ(root.shared().mappers().mappers().size(), 11u) << "a second scan adds what is unknown alone";
    // A writer takes its place in the order.
    root.shared().mappers().findWriter(root.at("/nobody/c/inputs"), kData);
    root.shared().mappers().findWriter(root.at("/nobody/d/inputs"), kData);
    EXPECT_TRUE(placesOf(root).contains("users/Alice/a/local slave-apps/c/local apps/.git/local "));
    EXPECT_TRUE(placesOf(root).contains("apps/b/local apps/d/local apps/a/metadata/local.meta "));
}

TEST(ConfPathMapperManager, APathBelongsToTheFirstPatternThatMatches)
{
    const ConfRoot root("[bootstrap]\n"
                        "apps/hidden/* = ignore\n"
                        "apps\\\\b\\\\local = conf\n"
                        "apps/*/local = conf\n"
                        "apps/*/* = conf\n"
                        "apps/* = default\n"
                        "bundles/*/local = conf\n");
    makeFolders(root, {"apps/a/local", "apps/b/local", "apps/b/.svn", "apps/hidden/local", "apps/a/x",
                       "bundles/old/local", "bundles/a/local"});
    EXPECT_EQ(placesOf(root), "apps/b/local apps/a/local apps/a/x bundles/old/local ")
        << "an app overrides the bundle of its name";
}

TEST(ConfPathMapperManager, FindsTheWriterOfEveryPlace)
{
    const ConfRoot root;
    const struct
    {
        const char *user, *app;
        unsigned flags;
        const char *place;
    } cases[] = {
        {"", "", kData, "system/local"},
        {"nobody", "search", kData, "apps/search/local"},
        {"nobody", "a$b$c", kData, "apps/a$b$c/local"},
        {"alice", "search", kData, "users/alice/search/local"},
        {"a$app$", "search", kData, "users/a$app$/search/local"},
        {"A:B", "search", kData, "users/_reserved/SAFE/search/local"},
        {"nobody", "search", kMetadata, "apps/search/metadata/local.meta"},
        {"alice", "search", kMetadata, "users/alice/search/metadata/local.meta"},
    };
    ConfPathMapperManager &manager = root.shared().mappers();
    for (const auto &[user, app, flags, place] : cases) {
        const ConfPathBase path(user, app, {"regmon-filters", "default"});
        IConfPathMapper *const writer = manager.findWriter(path, flags);
        const Str safe = UsernameMapper::makeSafeName(user);
        EXPECT_EQ(placeOf(root, *writer), replaced(place, "SAFE", safe));
        EXPECT_EQ(manager.findWriter(path, flags), writer);
    }
}

TEST(ConfPathMapperManager, TakesTheRootsOwnPathAsItStands)
{
    // What looks like placeholders in it is none.
    const ConfRoot outer;
    const Pathname path = outer / "in$app$and$$";
    outer.write("in$app$and$$/system/default/conf.conf", ConfRoot::shippedBootstrap().view());
    outer.makeFolder("in$app$and$$/apps/a/local");
    const SharedConfServices &services = SharedConfServices::of(BundlesSetup(path));
    EXPECT_EQ(services.mappers().mappers().size(), 2u);
    EXPECT_TRUE(services.mappers()
                    .findWriter(ConfPathBase("u", "a", {"t"}), kData)
                    ->describe()
                    .endsWith((path.join("users\\u\\a\\local")).toStr()));
}

TEST(ConfPathMapperManager, RefusesAWriteThatHasNoPlace)
{
    const ConfRoot shipped;
    const ConfRoot wrong("[bootstrap]\nsystem/local = conf\n[writes]\ndata:nobody:a:$type$ = elsewhere\n"
                         "data:nobody:b:$type$ = $gone{required\\=yes}$\n");
    const ConfRoot none("[bootstrap]\nsystem/local = conf\n");
    const auto refusal = [](const ConfRoot &root, const char *app, unsigned flags, const char *told) {
        const ConfLog log(root);
        const Str message = raisedBy<ConfPathHasNoWriter>(
            [&] { root.shared().mappers().findWriter(ConfPathBase("nobody", app, {"inputs"}), flags); });
        EXPECT_TRUE(log.text().contains(told)) << log.text().c_str();
        return replaced(message, root.path().toStr() << "\\", "");
    };
    EXPECT_EQ(refusal(shipped, "a", 3, "No write configuration for: pack:nobody:a:inputs"),
              "Could not find writer for: /nobody/a/inputs [3] [pack:nobody:a:inputs]");
    EXPECT_EQ(refusal(shipped, "..", 0, ""),
              "Could not find writer for: /nobody/../inputs [0] [apps\\..\\local]");
    EXPECT_EQ(refusal(wrong, "a", 0, ""), "Could not find writer for: /nobody/a/inputs [0] [elsewhere]");
    refusal(wrong, "b", 0, "Error while replacing variable name='gone'.");
    refusal(none, "a", 0, "Could not find 'writes' stanza in bootstrapping conf: ");
}

TEST(ConfPathMapperManager, ARuleThatIsWrongLeavesTheOthers)
{
    static constexpr const char *kWrong[][2] = {
        {"system/default = nonsense\n", "Unrecognized handler name 'nonsense' for path: ROOT/system/default"},
        {"system/$gone{required\\=1}$ = conf\n", "Error while replacing variable name='gone'."}};
    for (const auto &[rule, told] : kWrong) {
        const ConfRoot root(Str("[bootstrap]\n") << rule << "system/local = conf\n");
        root.makeFolder("system/local");
        root.setup();
        const ConfLog log(root);
        EXPECT_FALSE(root.shared().mappers().scan());
        EXPECT_EQ(placesOf(root), "system/local ");
        EXPECT_TRUE(log.text().contains(told)) << log.text().c_str();
    }
}

TEST(ConfPathMapperManager, ARunCanLeaveUsersAndAppsOut)
{
    InitSettings init;
    init.user = "Alice";
    init.apps = std::set<Str>{"a", "system"};
    const ConfRoot root;
    makeFolders(root, {"apps/a/local", "apps/b/local", "users/alice/a/local", "users/bob/a/local"});
    const ScopedInitSettings scoped(init);
    EXPECT_EQ(placesOf(root), "users/Alice/a/local apps/a/local system/default ");
}

TEST(PathOwner, FollowsFromWhereThePathLies)
{
    const ConfRoot root;
    const BundlesSetup setup = root.setup();
    UsernameMapper users(setup, root.shared().settings());
    const Str reserved = users.directoryName("A:B");
    const Str mapped = Str("users/") << reserved << "/Search";
    const struct
    {
        Str path;
        const char *user; ///< null where there is no owner
        const char *app = nullptr;
        Str rootDirectory = {};
    } cases[] = {
        {"apps/Search/local", "nobody", "Search", "apps/Search"},
        {"slave-apps/peer/default", "nobody", "peer", "slave-apps/peer"},
        {"system/local", "nobody", "system", "system"},
        {"users/Alice/Search/local", "alice", "Search", "users/Alice/Search"},
        {Str(mapped) << "/local", "A:B", "Search", mapped},
        {"users/_reserved/unknown.0/Search/local", "", "Search", "users/_reserved/unknown.0/Search"},
        {"bundles/old/local", "nobody", "system", "bundles/old"},
        {"", "nobody", "system", ""},
        {"users/alice", nullptr},
        {"master-apps/x/local", nullptr},
    };
    for (const auto &[path, user, app, rootDirectory] : cases) {
        PathOwner owner;
        ASSERT_EQ(findPathOwner(setup, users, path.empty() ? root.path() : root / path, owner),
                  user != nullptr)
            << path.c_str();
        if (user != nullptr) {
            EXPECT_EQ(owner.user, user) << path.c_str();
            EXPECT_EQ(owner.app, app) << path.c_str();
            EXPECT_EQ(owner.rootDirectory, rootDirectory.empty() ? root.path() : root / rootDirectory);
        }
    }
}

} // namespace
} // namespace velmox
