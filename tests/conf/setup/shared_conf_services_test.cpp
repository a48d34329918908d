#include "conf/conf_lock.h"
#include "conf/conf_path_exceptions.h"
#include "conf/setup/conf_path_mapper_manager.h"
#include "conf/setup/conf_settings.h"
#include "conf/setup/sentinel_scope.h"
#include "conf/setup/shared_conf_services.h"
#include "conf/setup/shared_conf_services_registry.h"
#include "searchthing/lock.h"
#include "tests/conf/conf_root.h"
#include "tests/support/child_test.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <thread>

namespace velmox {
namespace {

using namespace velmox::testing;

TEST(SharedConfServices, AreOnePerRootHoweverItIsSpelled)
{
    const unsigned violations = ConfLock::orderViolations();
    const ConfRoot root;
    const ConfRoot other;
    const BundlesSetup setup = root.setup();
    Pathname upper = Pathname::fromUtf8(root.path().toStr().uppered());
    upper += u"\\";
    EXPECT_EQ(&BundlesSetup(upper).shared(), &setup.shared());
    EXPECT_EQ(BundlesSetup(upper), setup);
    EXPECT_EQ(BundlesSetup(upper) <=> setup, std::strong_ordering::equal);
    EXPECT_NE(other.setup(), setup);
    EXPECT_NE(&other.setup().shared(), &setup.shared());
    EXPECT_EQ(ConfLock::orderViolations(), violations);
}

TEST(SharedConfServices, AreMadeOnceForManyThreads)
{
    const ConfRoot root;
    constexpr std::size_t kThreads = 4;
    std::array<SharedConfServices *, kThreads> seen{};
    std::array<const ConfSettings *, kThreads> settings{};
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                seen[i] = &root.setup().shared();
                settings[i] = seen[i]->settingsIfMade();
            });
        }
    }
    EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), 1u);
    EXPECT_EQ(std::set(settings.begin(), settings.end()).size(), 1u);
    EXPECT_NE(settings[0], nullptr);
}

TEST(SharedConfServices, RecreateReadsTheBootstrapFileAgain)
{
    const ConfRoot root("[init]\nsearch.use_all_apps = 0\n");
    SharedConfServices &services = root.setup().shared();
    const ConfSettings &before = services.settings();
    const unsigned generation = services.stats().generation;
    root.write("system\\default\\conf.conf", "[init]\nsearch.use_all_apps = 1\n");
    services.recreate();
    EXPECT_FALSE(before.searchUsesAllApps()) << "what was handed out stays valid";
    EXPECT_TRUE(services.settings().searchUsesAllApps());
    EXPECT_GT(services.stats().generation, generation);
    EXPECT_EQ(&root.setup().shared(), &services);
}

TEST(SharedConfServices, DISABLED_InAHome)
{
    LoaderInfo::instance()->readEnvironment();
    const Pathname home = ChildTest::argument();
    Pathname slashed(home);
    std::replace(slashed.begin(), slashed.end(), u'\\', u'/');
    const ScopedHome scoped(slashed);
    const BundlesSetup setup;
    EXPECT_TRUE(setup.isDefaultRoot());
    EXPECT_EQ(setup.root(), home.join("etc"));
    EXPECT_FALSE(setup.shared().settings().searchUsesAllApps());
    EXPECT_EQ(setup.shared().mappers().mappers().size(), 1u);
    EXPECT_EQ(setup.text(setup.appsDir()), "$VELMOX_HOME\\etc\\apps");
    EXPECT_EQ(BundlesSetup(), setup);
    EXPECT_EQ(BundlesSetup(home.join("ETC")), setup);
    EXPECT_TRUE(BundlesSetup(home.join("etc\\")).isDefaultRoot());
    EXPECT_EQ(SharedConfServicesRegistry::instance().population(), 1u);
}

TEST(SharedConfServices, OfTheDefaultRootGoByAnyOfItsNames)
{
    const ScopedFolder home;
    makeDirs(home / "etc\\system\\default", true);
    writeWhole(home / "etc\\system\\default\\conf.conf",
               "[bootstrap]\nsystem/default = conf\n[init]\nsearch.use_all_apps = 0\n");
    ChildTest child("SharedConfServices.DISABLED_InAHome", home.path());
    EXPECT_TRUE(child.succeeds()) << child.output().c_str();
}

TEST(SentinelScope, LocksSharedStorageAlone)
{
    const ConfRoot alone;
    {
        const SentinelScope scope(alone.setup(), "nothing");
        EXPECT_EQ(pathKind(alone / "apps"), PathKind::Nothing);
    }
    const ScopedFolder storage;
    makeDir(storage / "apps", true);
    const ConfRoot root;
    root.write(
        "system\\local\\server.conf",
        Str::fromFormat("[pooling]\nstate = enabled\nstorage = %s\nlock.timeout = 1ms\nlock.logging = 1\n",
                        storage.path().toStr().c_str()));
    const BundlesSetup setup = root.setup();
    const Pathname sentinel = setup.sentinelFile();
    {
        const SentinelScope scope(setup, "outer");
        const SentinelScope nested(setup, "nested");
        EXPECT_EQ(lockFileExists(sentinel), LockState::Exists);
        EXPECT_TRUE(readWhole(sentinel).endsWith(": outer\r\n") || readWhole(sentinel).endsWith(": outer\n"));
    }
    EXPECT_EQ(lockFileExists(sentinel), LockState::Absent);

    ASSERT_EQ(lockFileTry(sentinel), LockTry::Taken);
    try {
        const SentinelScope scope(setup, "refused");
        ADD_FAILURE();
    } catch (const ConfPathException &exception) {
        EXPECT_TRUE(exception.message().startsWith(
            Str::fromFormat("Failed to lock %s with code 1, possible reason: ", sentinel.toStr().c_str())))
            << exception.what();
    }
    EXPECT_EQ(lockFileRelease(sentinel), LockRelease::Done);
}

} // namespace
} // namespace velmox
