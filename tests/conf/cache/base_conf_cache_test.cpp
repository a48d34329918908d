#include "conf/cache/base_conf_cache.h"
#include "conf/setup/conf_path_mapper_manager.h"
#include "conf/setup/shared_conf_services.h"
#include "conf/tree/conf_path_base.h"
#include "searchthing/filesystem_change_watcher.h"
#include "tests/conf/conf_tree.h"
#include "tests/support/captured_log.h"
#include "util/clock.h"

#include <mutex>

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::ConfTree;

/// A cache of nothing at a time of the test's choice.
class CountingCache : public BaseConfCache
{
public:
    explicit CountingCache(const BundlesSetup &setup) : BaseConfCache("t", {setup, "", ""}) {}
    void collectDeletable(unsigned, ConfPathTrie &) override {}
    void rebuild() override
    {
        ++rebuilds;
        if (fails) {
            throw BaseException("no view");
        }
    }
    unsigned rebuildsAt(unsigned milliseconds)
    {
        rebuilds = 0;
        time_ = Timeval(Timeval::kUnixEpoch + Timeval::kTicksPerSecond / 1000 * milliseconds);
        const std::lock_guard guard(lock());
        refresh();
        return rebuilds;
    }

    bool fails = false;
    unsigned rebuilds = 0;

private:
    void buildStanza(const Str &, Stanzas &) override {}
    Timeval now() const override { return time_; }

    Timeval time_;
};

/// Tells the mapper of a file that something happened to it.
void notice(const BundlesSetup &setup, const Pathname &file)
{
    struct Notices : FilesystemChangeWatcher
    {
        Notices() : FilesystemChangeWatcher(Clock::system()) {}
        bool handleChange(WatchedFileState &) override { return true; }
    } notices;
    WatchedFileState state(notices, file, {}, WatchedFileState::kPollMs);
    IConfPathMapper *const mapper = setup.shared().mappers().mapperFor(file);
    ASSERT_NE(mapper, nullptr);
    mapper->onFileChange(state);
}

TEST(BaseConfCache, LooksForChangesInSharedStorageAlone)
{
    for (const bool isShared : {false, true}) {
        ConfTree tree;
        CapturedLog log;
        tree.put("system/local/t.conf", "[s]\nk=1\n");
        tree.put("system/local/server.conf", "[pooling]\nstorage = pool\npoll.interval.rebuild = 2\n");
        if (isShared) {
            tree.put("system/default/server.conf", "[pooling]\nstate = enabled\n");
        }
        const BundlesSetup &setup = tree.setup();
        CountingCache cache(setup);
        EXPECT_EQ(cache.rebuildsAt(10000), 1u);
        EXPECT_EQ(cache.rebuildsAt(12000), 0u);
        tree.put("system/local/t.conf", "[s]\nk=2\n");
        notice(setup, setup.systemLocalDir().join("t.conf"));
        EXPECT_EQ(cache.rebuildsAt(13999), 0u);
        EXPECT_EQ(log.text().contains("detected change"), false);
        EXPECT_EQ(cache.rebuildsAt(14000), isShared ? 1u : 0u);
        EXPECT_EQ(cache.rebuildsAt(16000), 0u);
        const Str told =
            Str::fromFormat("INFO BaseConfCache: [ConfPathMapper: %s] detected change in type t "
                            "(user: , app: , root: %s)\n",
                            setup.text(setup.systemLocalDir()).c_str(), setup.text(setup.root()).c_str());
        EXPECT_EQ(log.text().contains(told), isShared) << log.text().c_str();

        // A mapper that joins later is no change by itself, wherever its place is.
        ConfPathMapperManager &mappers = setup.shared().mappers();
        const std::size_t count = mappers.mappers().size();
        mappers.findWriter(ConfPathBase("", "fresh", {"t", "s"}), ConfPathMapperManager::Data);
        EXPECT_EQ(mappers.mappers().size(), count + 1);
        EXPECT_EQ(cache.rebuildsAt(18000), 0u);

        // A clock that was set back must not keep a change out of sight until it has caught up.
        tree.put("system/local/t.conf", "[s]\nk=3\n");
        notice(setup, setup.systemLocalDir().join("t.conf"));
        EXPECT_EQ(cache.rebuildsAt(5000), isShared ? 1u : 0u);
        EXPECT_EQ(log.text().contains(") precedes previous poll time ("), isShared);
        EXPECT_EQ(cache.rebuildsAt(6999), 0u);
    }
}

TEST(BaseConfCache, AViewThatCannotBeBuiltStaysStale)
{
    ConfTree tree;
    CountingCache cache(tree.setup());
    cache.fails = true;
    EXPECT_THROW(cache.rebuildsAt(0), BaseException);
    cache.fails = false;
    EXPECT_EQ(cache.rebuildsAt(0), 1u);
    EXPECT_EQ(cache.rebuildsAt(0), 0u);
    cache.invalidate();
    EXPECT_EQ(cache.rebuildsAt(0), 1u);
}

} // namespace
} // namespace velmox
