#include "conf/conf_path_exceptions.h"
#include "conf/setup/conf_settings.h"
#include "conf/setup/shared_conf_services.h"
#include "tests/conf/conf_root.h"
#include "tests/support/captured_log.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

using namespace velmox::testing;

constexpr char kSharedStorage[] = "[pooling]\nstate = Enabled\nstorage = ";

Str sharedStorage(const Pathname &storage)
{
    return Str(kSharedStorage) += storage.toStr();
}

TEST(ConfSettings, HasDefaults)
{
    const ConfRoot root;
    const BundlesSetup setup = root.setup();
    const ConfSettings &settings = setup.shared().settings();
    EXPECT_TRUE(settings.image().loaded());
    EXPECT_FALSE(settings.isSharedStorageMode());
    EXPECT_EQ(settings.lockTimeoutMs(), 10'000u);
    EXPECT_FALSE(settings.lockLogging());
    EXPECT_EQ(settings.rebuildPollMs(), 0u);
    EXPECT_EQ(settings.checkPollMs(), 30'000u);
    EXPECT_FALSE(settings.isBlacklisted(root.path()));
    EXPECT_EQ(settings.appUpdateTriggers(), "");
    EXPECT_FALSE(settings.allowsDangling("search"));
    EXPECT_TRUE(settings.searchUsesAllApps());
    EXPECT_EQ(setup.appsDir(), root / "apps");
    EXPECT_THROW(setup.poolInfoFile(), ConfPathException);
}

TEST(ConfSettings, TakesPoolingFromServerConfWithLocalFirst)
{
    const ConfRoot root("[pooling]\nlock.timeout = 1\napp_update_triggers = bootstrap\n"
                        "[data]\ndangling.allowed.search = 1\n[init]\nsearch.use_all_apps = no\n");
    root.write("system\\local\\server.conf", "[pooling]\nlock.timeout = 3 min\nlock.logging = true\n"
                                             "poll.interval.rebuild = 5\n"
                                             "poll.blacklist.bad = (\n"
                                             "poll.blacklist.good = ...\\*.tmp\n"
                                             "[other]\nlost = 1\n");
    root.write("system\\default\\server.conf", "[pooling]\nlock.timeout = 4\npoll.interval.check = bogus\n"
                                               "state = enabled\nstorage =\n");
    const BundlesSetup setup = root.setup();
    const ConfSettings &settings = setup.shared().settings();
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
    Str slashed = sharedStorage(storage.path());
    slashed.replaceAll("\\", "/");
    root.write("system\\local\\server.conf", slashed += "\npoll.interval.rebuild = 5\n");
    const BundlesSetup setup = root.setup();
    EXPECT_TRUE(setup.shared().settings().isSharedStorageMode());
    EXPECT_EQ(setup.shared().settings().rebuildPollMs(), 5000u);
    EXPECT_EQ(setup.appsDir(), storage / "apps");
    EXPECT_EQ(setup.usersDir(), storage / "users");
    EXPECT_EQ(setup.usernameMapFile(), storage / "users\\users.ini");
    EXPECT_EQ(setup.poolInfoFile(), storage / "pooling\\pooling.ini");
    EXPECT_EQ(setup.runDir(), storage / "var\\run\\velmox");
    EXPECT_EQ(setup.sentinelFile(), storage / "apps\\sentinel.txt");
    EXPECT_EQ(setup.slaveAppsDir(), root / "slave-apps");
    EXPECT_EQ(BundlesSetup(root.path(), u"C:/elsewhere").slaveAppsDir(), u"C:\\elsewhere");
}

TEST(ConfSettings, RelativeStorageLiesBelowTheRoot)
{
    const ConfRoot root;
    root.write("system\\local\\server.conf", sharedStorage(u"pool"));
    const CapturedLog log;
    EXPECT_EQ(root.setup().shared().settings().storage(), root / "pool");
    EXPECT_TRUE(log.text().contains("WARN ConfSettings: Storage location is a relative path: pool\n"
                                    "WARN ConfSettings: Defaulting storage to: " +
                                    std::string((root / "pool").toStr().view()) + "\n"))
        << log.text().c_str();
}

TEST(ConfSettings, StorageCanBeOverridden)
{
    const ConfRoot root;
    root.write("system\\local\\server.conf", sharedStorage(u"C:\\configured"));
    InitSettings init;
    init.storage = u"C:\\override";
    const ScopedInitSettings scoped(init);
    EXPECT_EQ(root.setup().shared().settings().storage(), u"C:\\override");
}

TEST(ConfSettings, ARootWithoutBootstrapFileUsesTheDefaultRoots)
{
    const ScopedFolder home;
    const ScopedHome scoped(home.path());
    makeDirs(home / "etc\\system\\default", true);
    const ScopedFolder bare;
    {
        const CapturedLog log;
        EXPECT_FALSE(BundlesSetup(bare.path()).shared().settings().image().loaded());
        EXPECT_TRUE(log.text().contains("WARN ConfSettings: No bootstrap configuration available for: " +
                                        std::string(bare.path().toStr().view()) + "\n"))
            << log.text().c_str();
    }
    writeWhole(home / "etc\\system\\default\\conf.conf", "[init]\nsearch.use_all_apps = 0\n");
    const ScopedFolder other;
    EXPECT_FALSE(BundlesSetup(other.path()).shared().settings().searchUsesAllApps());
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

} // namespace
} // namespace velmox
