#include "conf/ground/conf_lock.h"
#include "conf/mapper/conf_change_watcher.h"
#include "conf/store/application_manager.h"
#include "conf/store/shared_conf_services.h"
#include "tests/conf/conf_root.h"
#include "util/time/clock.h"

namespace velmox {
namespace {

using namespace testing;

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
        seen << state.path().basename().toStr() << " ";
        return settles;
    }
    Str seen;
    bool settles = true;
};

TEST(FilesystemChangeWatcher, LooksAtEachFileInItsOwnTime)
{
    const ConfRoot root("");
    root.write("below/b", "1");
    root.write("a", "1");
    SetClock clock;
    CountingWatcher watcher(clock);
    watcher.watch(root.path());
    const auto seenAfter = [&](unsigned milliseconds) {
        clock.now += milliseconds;
        watcher.runDue();
        return std::exchange(watcher.seen, "");
    };
    EXPECT_EQ(watcher.runDue(), 30000u) << "the walk for new files";
    root.write("a", "22");
    root.write("below/b", "22");
    root.write("new", "");
    EXPECT_EQ(seenAfter(30000), "new ");
    EXPECT_EQ(watcher.runDue(), 12u);
    watcher.settles = false;
    EXPECT_EQ(seenAfter(12), "a ");
    EXPECT_EQ(seenAfter(4199), "b ");
    watcher.settles = true;
    EXPECT_EQ(seenAfter(1), "a ");
    removeFile(root / "new");
    EXPECT_EQ(seenAfter(30000) << seenAfter(35000), "b new ");
}

constexpr char kBootstrap[] = "[bootstrap]\nsystem/local = conf\napps/*/local = conf\n"
                              "[relative_depth_to_regular_files]\nconf = 1\n";
constexpr char kFile[] = "system/local/inputs.conf";
constexpr char kSkipped[] = "system/local/skipped.conf";

TEST(ConfChangeWatcher, BringsChangesToTheMapper)
{
    const ConfRoot root(kBootstrap);
    root.write("system/default/server.conf",
               "[pooling]\npoll.interval.check = 10s\npoll.blacklist.a = ...skipped.conf\n");
    root.write(kFile, "[s]\nk = 1\n");
    root.write(kSkipped, "[s]\nk = 1\n");
    IConfPathMapper &mapper = root.mapperOf(kFile);
    ConfTypeState state;
    const auto changed = [&] { return mapper.hasChangedSince("inputs", state); };
    const auto value = [&](const char *type) {
        const ConfPath path = root.at(Str("/nobody/system/") << type << "/s/k");
        ConfPathTrie out;
        mapper.read(path, out, 0);
        return out.find(path) ? out.find(path)->data() : Str("none");
    };
    SetClock clock;
    ConfChangeWatcher watcher(root.setup(), clock);
    const auto nextLook = [&](unsigned milliseconds) {
        clock.now += milliseconds;
        return watcher.runDue();
    };
    EXPECT_EQ(value("inputs") << value("skipped"), "11");
    EXPECT_EQ(nextLook(0), 10000u);
    root.write(kFile, "[s]\nk = 2\n#\n");
    root.write(kSkipped, "[s]\nk = 2\n#\n");
    EXPECT_EQ(nextLook(9999), 1u);
    EXPECT_EQ(value("inputs"), "1");
    EXPECT_EQ(nextLook(1), 10000u);
    EXPECT_EQ(value("inputs") << value("skipped"), "21");
    EXPECT_TRUE(changed());

    // A change that says nothing new is looked at once more.
    root.write(kFile, "# comment\n[s]\nk = 2\n");
    EXPECT_EQ(nextLook(10000), 4200u);
    EXPECT_EQ(nextLook(4200), 5800u);
    EXPECT_FALSE(changed());

    // A file that a program is still writing is passed over.
    root.write(kFile, "[s]\nk = 33\n");
    {
        const FileHandle writer(CreateFileW(asWide(root / kFile), GENERIC_WRITE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                            nullptr));
        EXPECT_EQ(nextLook(10000), 4200u);
        EXPECT_FALSE(changed());
    }
    nextLook(4200);
    EXPECT_EQ(value("inputs"), "33");

    removeFile(root / kFile);
    root.write("system/local/late.conf", "[s]\nk = 4\n");
    EXPECT_EQ(value("late"), "none");
    nextLook(30000);
    EXPECT_EQ(value("inputs") << value("late"), "none4");
}

TEST(ConfChangeWatcher, TellsTheManagerOfApplicationsAfterTheMapperIsFree)
{
    const ConfRoot root(kBootstrap);
    root.makeFolder("apps/search/local");
    SetClock clock;
    ConfChangeWatcher watcher(root.setup(), clock);
    EXPECT_TRUE(root.shared().applications().isUsable("search"));
    root.write("apps/search/local/app.conf", "[install]\nstate = disabled\n");
    const unsigned violations = ConfLock::orderViolations();
    const ConfLog log(root);
    clock.now += 30000;
    watcher.runDue();
    EXPECT_TRUE(log.text().contains("INFO ConfPathMapper: App modification, creation, or update: search\n"))
        << log.text().c_str();
    EXPECT_FALSE(root.shared().applications().isUsable("search"));
    EXPECT_EQ(ConfLock::orderViolations(), violations);
}

} // namespace
} // namespace velmox
