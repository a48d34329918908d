#include "conf/conf_path_exceptions.h"
#include "conf/setup/conf_path_mapper_manager.h"
#include "conf/setup/shared_conf_services.h"
#include "conf/tree/conf_path_base.h"
#include "tests/conf/conf_root.h"
#include "tests/support/captured_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using namespace velmox::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned kData = ConfPathMapperManager::Data;
constexpr unsigned kMetadata = ConfPathMapperManager::Metadata;

ConfPathMapperManager &managerOf(const ConfRoot &root)
{
    return root.setup().shared().mappers();
}

/// The path that a mapper serves, below the root.
Str placeOf(const ConfRoot &root, const IConfPathMapper &mapper)
{
    const Str text = mapper.describe();
    const Str base = root.path().toStr();
    const std::size_t at = text.find(base);
    return at == Str::npos ? text : text.substr(at + base.size() + 1);
}

std::vector<std::string> placesOf(const ConfRoot &root, const ConfPathMapperManager &manager)
{
    std::vector<std::string> places;
    for (const IConfPathMapper *const mapper : manager.mappers()) {
        places.emplace_back(placeOf(root, *mapper).view());
    }
    return places;
}

std::vector<std::string> placesOf(const ConfRoot &root)
{
    return placesOf(root, managerOf(root));
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
    makeFolders(root,
                {"system\\local", "apps\\b\\local", "apps\\a\\default", "apps\\a\\local", "apps\\b\\default",
                 "apps\\.git\\local", "users\\Alice\\a\\local", "slave-apps\\c\\default"});
    root.write("apps\\a\\metadata\\local.meta", "");
    root.write("apps\\a\\metadata\\default.meta", "");
    root.write("apps\\a\\metadata\\other.meta", "");
    root.write("apps\\stray", "");
    EXPECT_THAT(placesOf(root),
                ElementsAre("system\\local", "users\\Alice\\a\\local", "apps\\.git\\local", "apps\\a\\local",
                            "apps\\b\\local", "apps\\a\\metadata\\local.meta", "slave-apps\\c\\default",
                            "apps\\a\\default", "apps\\b\\default", "apps\\a\\metadata\\default.meta",
                            "system\\default"));
    EXPECT_TRUE(managerOf(root).scan());
    EXPECT_EQ(managerOf(root).mappers().size(), 11u) << "a second scan adds what is unknown alone";
}

TEST(ConfPathMapperManager, APathBelongsToTheFirstPatternThatMatches)
{
    const ConfRoot root("[bootstrap]\n"
                        "apps/hidden/* = ignore\n"
                        "apps/b/local = conf\n"
                        "apps/*/local = conf\n"
                        "apps/*/* = conf\n"
                        "apps/* = default\n");
    makeFolders(root,
                {"apps\\a\\local", "apps\\b\\local", "apps\\b\\.svn", "apps\\hidden\\local", "apps\\a\\x"});
    EXPECT_THAT(placesOf(root), ElementsAre("apps\\b\\local", "apps\\a\\local", "apps\\a\\x"));
}

TEST(ConfPathMapperManager, FindsTheWriterOfEveryPlace)
{
    const ConfRoot root;
    const struct
    {
        const char *user;
        const char *app;
        unsigned flags;
        const char *place;
    } cases[] = {
        {"", "", kData, "system\\local"},
        {"nobody", "search", kData, "apps\\search\\local"},
        {"NOBODY", "search", kData, "apps\\search\\local"},
        {"nobody", "a$b$c", kData, "apps\\a$b$c\\local"},
        {"alice", "search", kData, "users\\alice\\search\\local"},
        {"alice", "system", kData, "users\\alice\\system\\local"},
        {"a$app$", "search", kData, "users\\a$app$\\search\\local"},
        {"nobody", "system", kMetadata, "system\\metadata\\local.meta"},
        {"nobody", "search", kMetadata, "apps\\search\\metadata\\local.meta"},
        {"alice", "search", kMetadata, "users\\alice\\search\\metadata\\local.meta"},
    };
    ConfPathMapperManager &manager = managerOf(root);
    for (const auto &each : cases) {
        const ConfPathBase path(each.user, each.app, {"regmon-filters", "default"});
        IConfPathMapper *const writer = manager.findWriter(path, each.flags);
        EXPECT_EQ(placeOf(root, *writer), each.place);
        EXPECT_EQ(manager.findWriter(path, each.flags), writer);
    }
    const ConfPathBase mapped("A:B", "search", {"inputs"});
    EXPECT_TRUE(placeOf(root, *manager.findWriter(mapped, kData)).startsWith("users\\_reserved\\a_b."));
}

TEST(ConfPathMapperManager, AWriterTakesItsPlaceInTheReadingOrder)
{
    const ConfRoot root;
    makeFolders(root, {"system\\local", "apps\\a\\default"});
    ConfPathMapperManager &manager = managerOf(root);
    manager.findWriter(ConfPathBase("nobody", "a", {"inputs"}), kData);
    EXPECT_THAT(placesOf(root),
                ElementsAre("system\\local", "apps\\a\\local", "apps\\a\\default", "system\\default"));
}

TEST(ConfPathMapperManager, RefusesAWriteThatHasNoPlace)
{
    const ConfRoot shipped;
    const ConfRoot wrong("[bootstrap]\nsystem/local = conf\n[writes]\ndata:nobody:a:$type$ = elsewhere\n"
                         "data:nobody:b:$type$ = $gone{required\\=yes}$\n");
    const ConfRoot none("[bootstrap]\nsystem/local = conf\n");
    const ConfRoot unloaded("");
    const struct
    {
        const ConfRoot &root;
        const char *app;
        unsigned flags;
        const char *reason;
        Str place;
    } cases[] = {
        {shipped, "a", 3, "No write configuration for: pack:nobody:a:inputs", "pack:nobody:a:inputs"},
        {shipped, "..", 0, "", (shipped / "apps\\..\\local").toStr()},
        {wrong, "a", 0, "", (wrong / "elsewhere").toStr()},
        {wrong, "b", 0, "Error while replacing variable name='gone'.", "data:nobody:b:inputs"},
        {none, "a", 0, "Could not find 'writes' stanza in bootstrapping conf: ", "data:nobody:a:inputs"},
    };
    for (const auto &each : cases) {
        ConfPathMapperManager &manager = managerOf(each.root);
        const CapturedLog log;
        try {
            manager.findWriter(ConfPathBase("nobody", each.app, {"inputs"}), each.flags);
            ADD_FAILURE() << each.app;
        } catch (const ConfPathHasNoWriter &exception) {
            EXPECT_EQ(exception.message(),
                      Str::fromFormat("Could not find writer for: /nobody/%s/inputs [%x] [%s]", each.app,
                                      each.flags, each.place.c_str()));
        }
        EXPECT_TRUE(log.text().contains(each.reason)) << log.text().c_str();
    }
}

TEST(ConfPathMapperManager, AHandlerThatIsUnknownLeavesTheOthers)
{
    const ConfRoot root("[bootstrap]\nsystem/default = nonsense\nsystem/local = conf\n"
                        "system/$gone{required\\=1}$ = conf\n");
    root.makeFolder("system\\local");
    const BundlesSetup setup = root.setup();
    const CapturedLog log;
    EXPECT_FALSE(setup.shared().mappers().scan());
    EXPECT_THAT(placesOf(root), ElementsAre("system\\local"));
    EXPECT_TRUE(log.text().contains("Unrecognized handler name 'nonsense' for path: " +
                                    std::string((root / "system\\default").toStr().view())))
        << log.text().c_str();
}

TEST(ConfPathMapperManager, WithoutBootstrapFileTheStoreIsEmpty)
{
    const ScopedFolder home;
    const ScopedHome scoped(home.path());
    const ScopedFolder root;
    ConfPathMapperManager &manager = BundlesSetup(root.path()).shared().mappers();
    EXPECT_THAT(manager.mappers(), IsEmpty());
    EXPECT_FALSE(manager.scan());
    EXPECT_THROW(manager.findWriter(ConfPathBase("", "", {"inputs"}), kData), ConfPathHasNoWriter);
    EXPECT_EQ(manager.mapperFor(root / "system\\local\\inputs.conf"), nullptr);
}

TEST(ConfPathMapperManager, AnAppOverridesTheBundleOfItsName)
{
    const ConfRoot root("[bootstrap]\nbundles/*/local = conf\n");
    makeFolders(root, {"bundles\\old\\local", "bundles\\moved\\local", "apps\\moved"});
    EXPECT_THAT(placesOf(root), ElementsAre("bundles\\old\\local"));
}

TEST(ConfPathMapperManager, ARunCanLeaveUsersAndAppsOut)
{
    InitSettings oneUser;
    oneUser.user = "Alice";
    InitSettings oneApp;
    oneApp.apps = {{"a", "system"}};
    InitSettings minimal;
    minimal.minimal = true;
    const struct
    {
        InitSettings init;
        std::vector<std::string> places;
    } cases[] = {
        {oneUser,
         {"users\\Alice\\a\\local", "apps\\a\\local", "apps\\b\\local", "apps\\a\\metadata\\local.meta",
          "system\\default", "system\\metadata\\default.meta"}},
        {oneApp,
         {"users\\alice\\a\\local", "users\\bob\\a\\local", "apps\\a\\local", "apps\\a\\metadata\\local.meta",
          "system\\default", "system\\metadata\\default.meta"}},
        {minimal, {"apps\\a\\local", "apps\\b\\local", "system\\default", "system\\metadata\\default.meta"}},
    };
    for (const auto &each : cases) {
        const ConfRoot root;
        makeFolders(root,
                    {"apps\\a\\local", "apps\\b\\local", "users\\alice\\a\\local", "users\\bob\\a\\local"});
        root.write("apps\\a\\metadata\\local.meta", "");
        root.write("system\\metadata\\default.meta", "");
        const ScopedInitSettings scoped(each.init);
        EXPECT_EQ(placesOf(root), each.places);
    }
}

TEST(ConfPathMapperManager, FindsTheMapperOfAFile)
{
    const ConfRoot root;
    makeFolders(root, {"apps\\a\\local", "apps\\a\\default"});
    root.write("apps\\a\\metadata\\local.meta", "");
    ConfPathMapperManager &manager = managerOf(root);
    const struct
    {
        const char *file;
        const char *place;
    } cases[] = {
        {"apps\\a\\local\\inputs.conf", "apps\\a\\local"},
        {"APPS/a/default/inputs.conf", "apps\\a\\default"},
        {"apps\\a\\metadata\\local.meta", "apps\\a\\metadata\\local.meta"},
        {"apps\\a\\local\\deep\\inputs.conf", nullptr},
        {"apps\\unknown\\local\\inputs.conf", nullptr},
        {"apps\\a\\local", nullptr},
    };
    for (const auto &each : cases) {
        const IConfPathMapper *const mapper = manager.mapperFor(root / each.file);
        ASSERT_EQ(mapper != nullptr, each.place != nullptr) << each.file;
        if (mapper != nullptr) {
            EXPECT_EQ(placeOf(root, *mapper), each.place);
        }
    }
}

} // namespace
} // namespace velmox
