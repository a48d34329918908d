#include "conf/ground/conf_lock.h"
#include "conf/store/application_manager.h"
#include "conf/store/conf_change_watcher.h"
#include "tests/conf/conf_root.h"
#include "util/time/timeout.h"

namespace velmox {
namespace {

struct SetClock : Clock
{
    std::uint64_t milliseconds() override { return now; }
    std::uint64_t now = 1000;
};

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
    ConfChangeWatcher watcher(root.shared().mappers(), clock);
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

/// Another program changes a file, under the eyes of the watcher, while readers read and a writer writes.
/// What it writes is not watched: the look whether a file is being written keeps writers out at that moment.
TEST(ConfChangeWatcher, LeavesEachReadOfOneStateBesideReadersAndWriters)
{
    const CapturedLog quiet;
    const unsigned violations = ConfLock::orderViolations();
    const ConfRoot root;
    root.write("apps/a/default/t.conf", "[s]\nk = 0\nl = 0\n");
    root.write("system/default/server.conf", "[pooling]\npoll.blacklist.w = ...w.conf*\n");
    root.makeFolder("apps/a/local");
    SetClock clock;
    ConfChangeWatcher watcher(root.shared().mappers(), clock);
    // From here on the watcher's thread alone reads the file, which is not replaced in one step.
    EXPECT_EQ(root.stanzas("t").at("s").get("k"), "0");
    std::atomic<bool> isDone = false;
    const auto reader = [&](const char *app, const char *user) {
        while (!isDone) {
            const PropertiesMap stanza = root.stanzas("t", app, user).at("s");
            EXPECT_EQ(stanza.get("k"), stanza.get("l"));
        }
    };
    {
        std::vector<std::jthread> threads;
        threads.emplace_back(reader, "", "");
        threads.emplace_back(reader, "a", "u");
        threads.emplace_back([&] {
            for (int round = 1; !isDone; ++round) {
                PropertiesMap desired;
                desired.set("m", Str() << round);
                root.pages("w", "a").write("a", "s", desired, false);
            }
        });
        for (int round = 1; round <= 20; ++round) {
            root.write("apps/a/default/t.conf", Str::fromFormat("[s]\nk = %d\nl = %d\n", round, round));
            clock.now += 30000;
            watcher.runDue();
        }
        isDone = true;
    }
    root.shared().pages().invalidateAll();
    EXPECT_EQ(root.stanzas("t", "a").at("s").get("k"), "20");
    EXPECT_EQ(ConfLock::orderViolations(), violations);
}

TEST(ConfChangeWatcher, TellsTheManagerOfApplicationsAfterTheMapperIsFree)
{
    const ConfRoot root(kBootstrap);
    root.makeFolder("apps/search/local");
    SetClock clock;
    ConfChangeWatcher watcher(root.shared().mappers(), clock);
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
