#include "conf/conf_path.h"
#include "conf/mapper/conf_change_watcher.h"
#include "conf/setup/application_manager.h"
#include "conf/setup/conf_path_mapper_manager.h"
#include "conf/setup/shared_conf_services.h"
#include "tests/support/captured_log.h"
#include "tests/support/scoped_folder.h"
#include "util/clock.h"
#include "util/file_system.h"

namespace velmox {
namespace {

using testing::ScopedFolder;
using testing::writeWhole;

struct SetClock : Clock
{
    std::uint64_t milliseconds() override { return now; }
    std::uint64_t now = 1000;
};

TEST(PollJitter, FollowsItsGenerator)
{
    PollJitter jitter;
    for (const std::uint64_t expected : {12u, 1797u, 265u, 327u, 677u, 1991u}) {
        EXPECT_EQ(jitter.next(), expected);
    }
}

struct CountingWatcher : FilesystemChangeWatcher
{
    using FilesystemChangeWatcher::FilesystemChangeWatcher;
    bool handleChange(WatchedFileState &state) override
    {
        seen.push_back(state.path().basename().toStr());
        return settles;
    }
    StrVector seen;
    bool settles = true;
};

TEST(FilesystemChangeWatcher, LooksAtEachFileInItsOwnTime)
{
    ScopedFolder folder;
    makeDirs(folder / "below", true);
    writeWhole(folder / "a", "1");
    writeWhole(folder / "below\\b", "1");
    SetClock clock;
    CountingWatcher watcher(clock);
    watcher.watch(folder.path());
    EXPECT_EQ(watcher.runDue(), 30000u) << "the walk for new files";
    writeWhole(folder / "a", "22");
    writeWhole(folder / "below\\b", "22");
    writeWhole(folder / "new", "");
    clock.now += 30000;
    EXPECT_EQ(watcher.runDue(), 12u);
    EXPECT_EQ(watcher.seen, StrVector{"new"});
    watcher.settles = false;
    clock.now += 12;
    watcher.runDue();
    EXPECT_EQ(watcher.seen, (StrVector{"new", "a"}));
    clock.now += 4199;
    watcher.runDue();
    EXPECT_EQ(watcher.seen, (StrVector{"new", "a", "b"}));
    watcher.settles = true;
    clock.now += 1;
    watcher.runDue();
    EXPECT_EQ(watcher.seen, (StrVector{"new", "a", "b", "a"}));
    clock.now += 30000;
    removeFile(folder / "new");
    watcher.runDue();
    clock.now += 35000;
    watcher.runDue();
    EXPECT_EQ(watcher.seen, (StrVector{"new", "a", "b", "a", "b", "new"}));
}

class ConfChangeWatcherTest : public ::testing::Test
{
protected:
    ConfChangeWatcherTest()
    {
        makeDirs(root / "system\\default", true);
        makeDirs(root / "system\\local", true);
        makeDirs(root / "apps\\search\\local", true);
        writeWhole(root / "system\\default\\conf.conf",
                   "[bootstrap]\nsystem/local = conf\napps/*/local = "
                   "conf\n[relative_depth_to_regular_files]\nconf = 1\n");
        writeWhole(root / "system\\default\\server.conf",
                   "[pooling]\npoll.interval.check = 10s\npoll.blacklist.a = ...skipped.conf\n");
        writeWhole(file, "[s]\nk = 1\n");
        writeWhole(skipped, "[s]\nk = 1\n");
    }
    bool changed(const Str &type)
    {
        return BundlesSetup(root.path())
            .shared()
            .mappers()
            .mappers()
            .at(0)
            ->hasChangedSince(type, states[type]);
    }
    Str value(const Str &type)
    {
        const BundlesSetup setup(root.path());
        const ConfPath path(setup, ConfPathBase("", "", {type, "s", "k"}));
        ConfPathTrie out;
        setup.shared().mappers().mappers().at(0)->read(path, out, 0);
        const ConfPathTrie *node = out.find(path);
        return node ? node->data() : Str("none");
    }

    ScopedFolder root;
    const Pathname file = root / "system\\local\\inputs.conf";
    const Pathname skipped = root / "system\\local\\skipped.conf";
    SetClock clock;
    std::map<Str, ConfTypeState> states;
};

TEST_F(ConfChangeWatcherTest, BringsChangesToTheMapper)
{
    ConfChangeWatcher watcher(BundlesSetup(root.path()), clock);
    EXPECT_EQ(value("inputs"), "1");
    EXPECT_EQ(value("skipped"), "1");
    EXPECT_EQ(watcher.runDue(), 10000u);
    writeWhole(file, "[s]\nk = 2\n#\n");
    writeWhole(skipped, "[s]\nk = 2\n#\n");
    clock.now += 9999;
    EXPECT_EQ(watcher.runDue(), 1u);
    EXPECT_EQ(value("inputs"), "1");
    clock.now += 1;
    EXPECT_EQ(watcher.runDue(), 10000u);
    EXPECT_EQ(value("inputs"), "2");
    EXPECT_TRUE(changed("inputs"));
    EXPECT_EQ(value("skipped"), "1");

    // A change that says nothing new is looked at once more.
    writeWhole(file, "# comment\n[s]\nk = 2\n");
    clock.now += 10000;
    EXPECT_EQ(watcher.runDue(), 4200u);
    clock.now += 4200;
    EXPECT_EQ(watcher.runDue(), 5800u);
    EXPECT_FALSE(changed("inputs"));

    // A file that a program is still writing is passed over.
    writeWhole(file, "[s]\nk = 33\n");
    clock.now += 10000;
    {
        const FileHandle writer(CreateFileW(asWide(file), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                            nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(watcher.runDue(), 4200u);
        EXPECT_FALSE(changed("inputs"));
    }
    clock.now += 4200;
    watcher.runDue();
    EXPECT_EQ(value("inputs"), "33");

    removeFile(file);
    writeWhole(root / "system\\local\\late.conf", "[s]\nk = 4\n");
    EXPECT_EQ(value("late"), "none");
    clock.now += 30000;
    watcher.runDue();
    EXPECT_EQ(value("inputs"), "none");
    EXPECT_EQ(value("late"), "4");
}

TEST_F(ConfChangeWatcherTest, TellsTheManagerOfApplicationsAfterTheMapperIsFree)
{
    ConfChangeWatcher watcher(BundlesSetup(root.path()), clock);
    EXPECT_TRUE(BundlesSetup(root.path()).shared().applications().isUsable("search"));
    writeWhole(root / "apps\\search\\local\\app.conf", "[install]\nstate = disabled\n");
    const unsigned violations = ConfLock::orderViolations();
    testing::CapturedLog log;
    clock.now += 30000;
    watcher.runDue();
    EXPECT_TRUE(log.text().contains("INFO ConfPathMapper: App modification, creation, or update: search\n"))
        << log.text().view();
    EXPECT_FALSE(BundlesSetup(root.path()).shared().applications().isUsable("search"));
    EXPECT_EQ(ConfLock::orderViolations(), violations);
}

} // namespace
} // namespace velmox
