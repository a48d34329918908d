#include "conf/ground/conf_exceptions.h"
#include "conf/ground/conf_lock.h"
#include "conf/store/application_manager.h"
#include "tests/conf/conf_root.h"
#include "tests/support/function_thread.h"

namespace velmox {
namespace {

PropertiesMap made(std::initializer_list<std::pair<const char *, const char *>> settings)
{
    PropertiesMap stanza;
    for (const auto &[key, value] : settings) {
        stanza.set(key, value);
    }
    return stanza;
}

TEST(PropertyPagesWrite, WhatWasReadWithoutAContextComesToRestAsItsChangesAlone)
{
    const ConfRoot root;
    root.write("system/local/t.conf", "[default]\nindex=sys\n[s]\nover=sl\n");
    root.write("apps/a/default/t.conf", "[default]\nzown=1\n[s]\nproc=p\nover=ad\nthere=1\n");
    root.write("apps/b/default/t.conf", "[s]\nzforeign=b\nzown=2\n");
    root.write("system/default/t.conf", "[default]\ninherited=d\n[s]\nshipped=sd\n[t]\nk=v\n");

    PropertiesMap stanza = root.stanzas("t").at("s");
    EXPECT_EQ(stanza.properties.size(), 8u);
    EXPECT_EQ(stanza.appName(), "a");
    root.pages("t", "a").write("a", "s", stanza, false);
    EXPECT_FALSE(root.has("apps/a/local"));
    EXPECT_FALSE(root.has("apps/a/metadata/local.meta"));

    stanza.set("disabled", "1");
    stanza.set("inherited", "mine");
    stanza.set("there", "2");
    root.pages("t", "a").write("a", "s", stanza, false);
    EXPECT_EQ(root.text("apps/a/local/t.conf"), "\n[s]\ndisabled = 1\ninherited = mine\nthere = 2\n");
    const PropertiesMap now = root.stanzas("t").at("s");
    for (const auto &[key, value] : stanza.properties) {
        EXPECT_EQ(now.get(key), value.value) << key.c_str();
    }
    EXPECT_EQ(root.text("system/local/t.conf"), "[default]\nindex=sys\n[s]\nover=sl\n");

    // A stanza of the system goes to the system, where nothing needs an owner.
    stanza = root.stanzas("t").at("t");
    EXPECT_EQ(stanza.appName(), "system");
    stanza.set("disabled", "1");
    root.pages("t", "system").write("system", "t", stanza, false);
    EXPECT_EQ(root.text("system/local/t.conf"),
              "[default]\nindex = sys\n\n[s]\nover = sl\n\n[t]\ndisabled = 1\n");
    root.pages("t", "system").write("system", "fresh", made({{"k", "1"}}), false);
    EXPECT_FALSE(root.has("system/metadata"));
}

TEST(PropertyPagesWrite, WritesTheDifferenceToWhatAReaderOfItsContextSees)
{
    const ConfRoot root;
    root.write("apps/a/default/t.conf", "[default]\nd=1\n[s]\nk=1\n");
    root.write("system/default/t.conf", "[s]\nk=2\nshipped=1\n");
    PropertyPages &pages = root.pages("t", "a");

    pages.write("a", "s", made({{"k", "1"}, {"d", "1"}}), false);
    EXPECT_FALSE(root.has("apps/a/local"));
    // Nothing of the system is in sight of this context, so the caller who sets it gets it.
    pages.write("a", "s", made({{"k", "2"}, {"d", "1"}, {"shipped", "1"}, {"e", ""}}), false);
    EXPECT_EQ(root.text("apps/a/local/t.conf"), "\n[s]\ne = \nk = 2\nshipped = 1\n");
    EXPECT_EQ(root.stanzas("t", "a").at("s").get("k"), "2");

    // A new stanza leaves a mark of its own when it has nothing else, and the name of its owner.
    pages.write("a", "new", made({}), false);
    EXPECT_TRUE(root.text("apps/a/local/t.conf").endsWith("\n\n[new]\n"));
    EXPECT_TRUE(root.stanzas("t", "a").contains("new"));
    EXPECT_TRUE(root.text("apps/a/metadata/local.meta").contains("[t/new]\nowner = nobody\n"));

    root.pages("t", "a", "u").write("a", "s", made({{"k", "1"}, {"shipped", "1"}}), false);
    EXPECT_EQ(root.text("users/u/a/local/t.conf"), "\n[s]\nk = 1\n");
    EXPECT_EQ(root.stanzas("t", "a", "u").at("s").get("k"), "1");
    EXPECT_EQ(root.stanzas("t", "a").at("s").get("k"), "2");
}

TEST(PropertyPagesWrite, OverwritingLeavesOnlyWhatIsDesired)
{
    const ConfRoot root;
    root.write("apps/a/default/t.conf", "[s]\nk=1\nj=1\n");
    root.write("apps/a/local/t.conf", "# head\n[r]\nk=r\n[s]\nk=2\nm=2\n");
    root.write("apps/a/metadata/local.meta", "[t/r]\nowner = r\n[t/s]\nexport = none\n");
    PropertyPages &pages = root.pages("t", "a");
    EXPECT_EQ(root.stanzas("t", "a").at("s").get("k"), "2");
    pages.write("a", "s", made({{"k", "2"}, {"j", "1"}, {"n", "3"}}), true);
    EXPECT_EQ(root.text("apps/a/local/t.conf"), "# head\n[r]\nk = r\n\n[s]\nk = 2\nn = 3\n");
    EXPECT_EQ(root.stanzas("t", "a").at("s").get("m"), "");
    EXPECT_EQ(root.text("apps/a/metadata/local.meta"), "[t/r]\nowner = r\n");
    pages.write("a", "s", made({{"k", "1"}}), true);
    EXPECT_EQ(root.text("apps/a/local/t.conf"), "# head\n[r]\nk = r\n\n[s]\n");
}

TEST(PropertyPagesWrite, ReachesTheRegisterOfApps)
{
    const ConfRoot root;
    root.write("apps/a/default/t.conf", "[s]\nk=1\n");
    EXPECT_EQ(root.stanzas("t", "a", "u").size(), 1u);
    PropertyPages &ofApp = root.pages("app", "a");
    ofApp.write("a", "install", made({{"state", "disabled"}}), false);
    EXPECT_EQ(root.stanzas("t").size(), 0u);
    EXPECT_EQ(root.stanzas("t", "a", "u").size(), 0u);
    EXPECT_THROW(root.pages("t", "a"), PropertyPagesDisabledAppException);
    root.at("/nobody/a/app/install").remove();
    EXPECT_EQ(root.stanzas("t", "a").size(), 1u);
    // What does not change the app is not told.
    const ConfLog log(root);
    root.pages("t", "a").write("a", "s", made({{"k", "2"}}), false);
    EXPECT_EQ(log.told(), "");
    root.pages("t", "b").write("b", "ofB", made({{"k", "3"}}), false);
    EXPECT_TRUE(root.stanzas("t").contains("ofB"));
    EXPECT_EQ(log.told(), "INFO ApplicationManager: Detected app creation: b\n");
    const ScopedInitSettings scoped(ScopedInitSettings::inMemoryOnly());
    ofApp.write("a", "install", made({{"state", "disabled"}}), false);
    EXPECT_TRUE(log.told().endsWith("Detected app modification: a\n")) << log.told().c_str();
}

TEST(PropertyPagesWrite, TakesEffectInAnAppThatAnotherHostHandsOut)
{
    const ConfRoot root;
    root.write("slave-apps/c/default/t.conf", "[s]\nk=1\n");
    root.write("slave-apps/d/local/t.conf", "[s]\nk=1\n");
    root.pages("t", "c").write("c", "s", made({{"k", "2"}}), false);
    root.pages("t", "c").write("c", "new", made({{"k", "3"}}), false);
    root.pages("t", "d").write("d", "s", made({{"k", "4"}}), false);
    EXPECT_EQ(root.stanzas("t", "c").at("s").get("k"), "2");
    EXPECT_EQ(root.stanzas("t", "d").at("s").get("k"), "4");
    EXPECT_TRUE(root.text("slave-apps/c/metadata/local.meta").contains("[t/new]\nowner = nobody\n"));
    const ConfLog log(root);
    root.shared().applications().rescan(false);
    EXPECT_EQ(log.text(), "");
}

TEST(PropertyPagesWrite, FailuresAreTheCallersAndLeaveTheStoreUsable)
{
    const ConfRoot root;
    root.write("apps/a/default/t.conf", "[s]\nk=1\n");
    PropertyPages &pages = root.pages("t", "a");
    PropertiesMap named = made({{"k", "2"}});
    named.self.value = "a stanza has none";
    EXPECT_THROW(pages.write("a", "s", named, false), ConfPathWriteException);
    EXPECT_THROW(pages.write("..\\a", "s", made({{"k", "2"}}), false), ConfPathException);
    EXPECT_THROW(root.pages("t").write("", "s", made({{"k", "2"}}), false), PropertyPagesContextException);
    {
        const FailingCall full("fflush", -1, ERROR_DISK_FULL, 0, 2);
        EXPECT_THROW(pages.write("a", "s", made({{"k", "3"}}), false), ConfPathFlushException);
    }
    EXPECT_THROW(pages.write("a", "s", made({{"k/l", "4"}}), true), ConfPathDirectoryTraversalException);
    EXPECT_EQ(root.stanzas("t").at("s").get("k"), "3");
    pages.write("a", "s", made({{"k", "4"}}), true);
    EXPECT_EQ(root.text("apps/a/local/t.conf"), "\n[s]\nk = 4\n");
}

constexpr const char *kKeys[] = {"a", "b", "c", "d", "e"};
constexpr int kWrites = 15;

/// Sets all keys of a stanza to the same value, again and again.
void writeRounds(const ConfRoot &root, const char *stanza, const char *user)
{
    for (int round = 1; round <= kWrites; ++round) {
        PropertiesMap desired;
        for (const char *const key : kKeys) {
            desired.set(key, Str() << round);
        }
        root.pages("t", "app", user).write("app", stanza, desired, false);
    }
}

/// Counts the reads in which a stanza is of two rounds, or of an earlier one than before.
unsigned readRounds(const ConfRoot &root, const char *app, const char *user,
                    const std::atomic<unsigned> &writers)
{
    unsigned faults = 0;
    std::map<Str, int> last;
    while (writers.load() != 0) {
        for (const auto &[name, stanza] : root.stanzas("t", app, user)) {
            const int round = stanza.get("a").toInt(0);
            for (const char *const key : kKeys) {
                faults += stanza.get(key).toInt(0) != round;
            }
            faults += round < std::exchange(last[name], round);
        }
    }
    return faults;
}

TEST(PropertyPagesThreads, EachReadIsOfOneStateWhileOthersWrite)
{
    const CapturedLog quiet;
    const unsigned violations = ConfLock::orderViolations();
    const ConfRoot root;
    root.write("apps/app/default/t.conf", "[shared]\n[own]\n");
    root.setup();
    std::atomic<unsigned> writers{2};
    std::atomic<unsigned> faults{0};
    {
        std::vector<std::unique_ptr<FunctionThread>> threads;
        const auto start = [&](std::function<void()> body) {
            threads.push_back(std::make_unique<FunctionThread>(std::move(body)));
            threads.back()->start();
        };
        start([&] { writeRounds(root, "shared", ""), --writers; });
        start([&] { writeRounds(root, "own", "u"), --writers; });
        constexpr const char *kReaders[][2] = {{"", ""}, {"app", ""}, {"app", "u"}, {"app", "v"}};
        for (const auto &[app, user] : kReaders) {
            start([&, app = app, user = user] { faults += readRounds(root, app, user, writers); });
        }
    }
    EXPECT_EQ(faults.load(), 0u);
    const Str last = Str() << kWrites;
    EXPECT_EQ(root.stanzas("t").at("shared").get("e"), last);
    EXPECT_EQ(root.stanzas("t", "app", "u").at("own").get("e"), last);
    EXPECT_EQ(root.stanzas("t", "app", "v").at("own").get("e"), "");
    EXPECT_EQ(ConfLock::orderViolations(), violations);
}

} // namespace
} // namespace velmox
