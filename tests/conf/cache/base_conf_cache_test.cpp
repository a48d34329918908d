#include "conf/cache/base_conf_cache.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "tests/conf/conf_root.h"

namespace velmox {
namespace {

/// A cache of nothing at a time of the test's choice.
class CountingCache : public BaseConfCache
{
public:
    explicit CountingCache(const ConfRoot &root)
        : BaseConfCache("t", {root.setup(), "", ""}, root.shared().sources())
    {
    }
    void collectDeletable(unsigned, ConfPathTrie &) override {}
    void rebuild() override
    {
        ++rebuilds_;
        if (fails) {
            throw BaseException("no view");
        }
    }
    unsigned rebuildsAt(unsigned milliseconds)
    {
        rebuilds_ = 0;
        time_ = Timeval(Timeval::kUnixEpoch + Timeval::kTicksPerSecond / 1000 * milliseconds);
        const std::lock_guard guard(lock());
        refresh();
        return rebuilds_;
    }

    bool fails = false;

private:
    void buildStanza(const Str &, Stanzas &) override {}
    Timeval now() const override { return time_; }

    unsigned rebuilds_ = 0;
    Timeval time_;
};

TEST(BaseConfCache, LooksForChangesInSharedStorageAlone)
{
    for (const bool isShared : {false, true}) {
        const ConfRoot root;
        const ConfLog log(root);
        constexpr char kFile[] = "system/local/t.conf";
        root.write("system/local/server.conf", "[pooling]\nstorage = pool\npoll.interval.rebuild = 2\n");
        root.write("system/default/server.conf", isShared ? "[pooling]\nstate = enabled\n" : "");
        const auto change = [&](const char *text) {
            root.write(kFile, text);
            noticeChange(root.mapperOf(kFile), root / kFile);
        };
        CountingCache cache(root);
        EXPECT_EQ(cache.rebuildsAt(10000), 1u);
        EXPECT_EQ(cache.rebuildsAt(12000), 0u);
        change("[s]\nk=2\n");
        EXPECT_EQ(cache.rebuildsAt(13999), 0u);
        EXPECT_EQ(cache.rebuildsAt(14000), isShared ? 1u : 0u);
        EXPECT_EQ(log.text().contains("[ConfPathMapper: ROOT/system/local] detected change in type t"),
                  isShared);
        // A mapper that joins later is no change by itself, wherever its place is.
        root.shared().mappers().findWriter(root.at("/nobody/fresh/t/s"), ConfPathMapperManager::Data);
        EXPECT_EQ(cache.rebuildsAt(18000), 0u);
        // A clock that was set back must not keep a change out of sight until it has caught up.
        change("[s]\nk=3\n");
        EXPECT_EQ(cache.rebuildsAt(5000), isShared ? 1u : 0u);
        EXPECT_EQ(log.text().contains(") precedes previous poll time ("), isShared);
        EXPECT_EQ(cache.rebuildsAt(6999), 0u);
    }
}

TEST(BaseConfCache, AViewThatCannotBeBuiltStaysStale)
{
    const ConfRoot root;
    CountingCache cache(root);
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
