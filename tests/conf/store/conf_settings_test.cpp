#include "conf/ground/conf_exceptions.h"
#include "conf/ground/conf_lock.h"
#include "conf/root/conf_settings.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "tests/conf/conf_root.h"

namespace velmox {
namespace {

Str sharedStorage(const Pathname &storage)
{
    return Str("[pooling]\nstate = Enabled\nstorage = ") << storage.toStr();
}

TEST(ConfSettings, HasDefaults)
{
    const ConfRoot root;
    const ConfSettings &settings = root.shared().settings();
    EXPECT_TRUE(settings.image().loaded());
    EXPECT_FALSE(settings.isSharedStorageMode() || settings.lockLogging());
    EXPECT_EQ(settings.lockTimeoutMs(), 10'000u);
    EXPECT_EQ(settings.checkPollMs(), 30'000u);
    EXPECT_FALSE(settings.isBlacklisted(root.path()) || settings.allowsDangling("search"));
    EXPECT_TRUE(settings.searchUsesAllApps());
    EXPECT_EQ(root.setup().appsDir(), root / "apps");
    EXPECT_THROW(root.setup().poolInfoFile(), ConfPathException);
}

TEST(ConfSettings, TakesPoolingFromServerConfWithLocalFirst)
{
    const ConfRoot root("[pooling]\nlock.timeout = 1\napp_update_triggers = bootstrap\n"
                        "[data]\ndangling.allowed.search = 1\n[init]\nsearch.use_all_apps = no\n");
    root.write("system/local/server.conf", "[pooling]\nlock.timeout = 3 min\nlock.logging = true\n"
                                           "poll.interval.rebuild = 5\npoll.blacklist.bad = (\n"
                                           "poll.blacklist.good = ...\\*.tmp\n[other]\nlost = 1\n");
    root.write("system/default/server.conf", "[pooling]\nlock.timeout = 4\npoll.interval.check = bogus\n"
                                             "state = enabled\nstorage =\n");
    const ConfSettings &settings = root.shared().settings();
    EXPECT_EQ(settings.lockTimeoutMs(), 180'000u);
    EXPECT_TRUE(settings.lockLogging());
    EXPECT_EQ(settings.checkPollMs(), 30'000u);
    EXPECT_EQ(settings.rebuildPollMs(), 0u) << "shared storage needs a place";
    EXPECT_FALSE(settings.isSharedStorageMode());
    EXPECT_EQ(settings.appUpdateTriggers(), "");
    EXPECT_TRUE(settings.allowsDangling("search"));
    EXPECT_FALSE(settings.searchUsesAllApps());
    EXPECT_EQ(settings.image().findStanza("other"), nullptr);
    EXPECT_TRUE(settings.isBlacklisted(u"C:\\a\\b\\c.tmp"));
    EXPECT_FALSE(settings.isBlacklisted(u"C:\\a\\b\\c.tmp.conf"));
}

TEST(ConfSettings, SharedStorageMovesAppsAndUsers)
{
    const ScopedFolder storage;
    const ConfRoot root;
    root.write("system/local/server.conf", replaced(sharedStorage(storage.path()), "\\", "/")
                                               << "\npoll.interval.rebuild = 5\n");
    const BundlesSetup setup = root.setup();
    EXPECT_TRUE(root.shared().settings().isSharedStorageMode());
    EXPECT_EQ(root.shared().settings().rebuildPollMs(), 5000u);
    EXPECT_EQ(setup.appsDir(), storage / "apps");
    EXPECT_EQ(setup.usersDir(), storage / "users");
    EXPECT_EQ(setup.poolInfoFile(), storage / "pooling\\pooling.ini");
    EXPECT_EQ(setup.runDir(), storage / "var\\run\\velmox");
    EXPECT_EQ(setup.sentinelFile(), storage / "apps\\sentinel.txt");
    EXPECT_EQ(setup.slaveAppsDir(), root / "slave-apps");

    const ConfRoot overridden;
    overridden.write("system/local/server.conf", sharedStorage(u"C:\\configured"));
    const ScopedInitSettings scoped(
        ScopedInitSettings::with(&InitSettings::storage, Pathname(u"C:\\override")));
    EXPECT_EQ(overridden.shared().settings().storage(), u"C:\\override");
}

TEST(ConfSettings, RelativeStorageLiesBelowTheRoot)
{
    const ConfRoot root;
    root.write("system/local/server.conf", sharedStorage(u"pool"));
    const ConfLog log(root);
    EXPECT_EQ(root.shared().settings().storage(), root / "pool");
    EXPECT_TRUE(log.text().contains("Storage location is a relative path: pool\n")) << log.text().c_str();
}

TEST(ConfSettings, ARootWithoutBootstrapFileUsesTheDefaultRoots)
{
    const ScopedFolder home;
    const ScopedHome scoped(home.path());
    makeDirs(home / "etc\\system\\default", true);
    const ScopedFolder bare;
    EXPECT_FALSE(SharedConfServices::of(BundlesSetup(bare.path())).settings().image().loaded());
    EXPECT_TRUE(SharedConfServices::of(BundlesSetup(bare.path())).mappers().mappers().empty());
    writeWhole(home / "etc\\system\\default\\conf.conf", "[init]\nsearch.use_all_apps = 0\n");
    const ScopedFolder other;
    EXPECT_FALSE(SharedConfServices::of(BundlesSetup(other.path())).settings().searchUsesAllApps());
}

TEST(BundlesSetup, TellsPathsBelowTheHomeByItsName)
{
    const ScopedFolder home;
    const ScopedHome scoped(home.path());
    makeDirs(home / "etc2", true);
    const BundlesSetup inside(home / "etc2");
    EXPECT_EQ(inside.text(home / "etc2\\apps"), "$VELMOX_HOME\\etc2\\apps");
    const Pathname sibling = home.path().concat("2\\x");
    EXPECT_EQ(inside.text(sibling), sibling.toStr());
    const ScopedFolder elsewhere;
    EXPECT_EQ(BundlesSetup(elsewhere.path()).text(home / "etc2"), (home / "etc2").toStr());
}

TEST(SharedConfServices, AreOnePerRootHoweverItIsSpelledAndWhoeverAsksFirst)
{
    const unsigned violations = ConfLock::orderViolations();
    const ConfRoot root;
    std::array<SharedConfServices *, 4> seen{};
    {
        std::vector<std::jthread> threads;
        for (SharedConfServices *&slot : seen) {
            threads.emplace_back([&] { slot = &root.shared(); });
        }
    }
    EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), 1u);
    const ConfRoot other;
    const BundlesSetup upper(Pathname::fromUtf8(root.path().toStr().uppered() << "\\"));
    EXPECT_EQ(&SharedConfServices::of(upper), seen[0]);
    EXPECT_EQ(upper, root.setup());
    EXPECT_NE(other.setup(), root.setup());
    EXPECT_NE(&other.shared(), seen[0]);
    EXPECT_EQ(ConfLock::orderViolations(), violations);
}

TEST(SharedConfServices, RecreateReadsTheBootstrapFileAgain)
{
    const ConfRoot root("[init]\nsearch.use_all_apps = 0\n");
    SharedConfServices &services = root.shared();
    const ConfSettings &before = services.settings();
    root.write("system/default/conf.conf", "[init]\nsearch.use_all_apps = 1\n");
    services.recreate();
    EXPECT_FALSE(before.searchUsesAllApps()) << "what was handed out stays valid";
    EXPECT_TRUE(services.settings().searchUsesAllApps());
    EXPECT_EQ(&root.shared(), &services);
}

} // namespace
} // namespace velmox
