#include "conf/setup/application_manager.h"
#include "conf/setup/conf_path_mapper_manager.h"
#include "conf/setup/shared_conf_services.h"
#include "tests/conf/conf_tree.h"
#include "tests/support/captured_log.h"

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::ConfTree;

/// The record of an app in one line; the booleans in their order, with "+" for true.
Str tell(ConfTree &tree, const char *app)
{
    ApplicationInfo info;
    try {
        tree.setup().shared().applications().getInfo(app, info);
    } catch (const ApplicationDoesNotExistException &exception) {
        return exception.message();
    }
    Str text;
    for (const bool flag : {info.enabled, info.configured, info.restartNeeded, info.allowsDisable,
                            info.idGiven, info.checkForUpdates}) {
        text << (flag ? "+" : "-");
    }
    return text << " " << info.id << " " << info.version;
}

TEST(ApplicationManager, KnowsTheFoldersOfAppsAndWhatTheirSettingsSay)
{
    ConfTree tree;
    tree.put("apps/plain/default/t.conf", "");
    tree.put("apps/told/default/app.conf",
             "[install]\nstate = enabled\nis_configured = 1\nallows_disable = no\n"
             "state_change_requires_restart = yes\n[package]\nid = p\ncheck_for_updates = 0\n"
             "[launcher]\nversion = 1.0\n");
    tree.put("apps/told/local/app.conf", "[launcher]\nversion = 2.0\n");
    tree.put("apps/odd/local/app.conf", "[default]\nversion = 3\n[install]\nis_configured = maybe\n"
                                        "allows_disable = maybe\n[package]\nid =\n");
    tree.put("apps/off/local/app.conf", "[install]\nstate = Enabled\n");
    tree.put("apps/system/local/app.conf", "[install]\nstate = disabled\n");
    tree.put("apps/.git/local/app.conf", "");
    tree.put("apps/file", "");
    tree.put("slave-apps/twice/local/app.conf", "[package]\nid = slave\n");
    tree.put("apps/twice/local/t.conf", "");
    const CapturedLog log;
    EXPECT_EQ(tell(tree, "plain"), "+--+++ plain ");
    EXPECT_EQ(tell(tree, "told"), "+++--- p 2.0");
    EXPECT_EQ(tell(tree, "odd"), "+--+++ odd 3");
    EXPECT_EQ(tell(tree, "off"), "---+++ off ");
    EXPECT_EQ(tell(tree, "system"), "+--+++ system ");
    EXPECT_EQ(tell(tree, "twice"), "+--+-+ slave ");
    EXPECT_TRUE(log.text().contains("ERROR ApplicationManager: Unexpected duplicate app: twice\n"))
        << log.text().c_str();
    for (const char *const name : {".git", "file", "Plain", ""}) {
        EXPECT_EQ(tell(tree, name), Str("Cannot import non-existent application: ").append(name));
    }
}

TEST(ApplicationManager, FollowsImportsStepByStep)
{
    ConfTree tree;
    tree.put("apps/a/metadata/default.meta", "[]\nimport = b, gone, a, %ff\n");
    tree.put("apps/b/metadata/default.meta", "[]\nimport = c%20d, a\n");
    tree.put("apps/c d/metadata/default.meta", "[]\nimport = b, e\n");
    tree.put("apps/e/metadata/default.meta", "[t]\nexport = system\n");
    tree.put("apps/f/default/t.conf", "");
    const ApplicationManager &applications = tree.setup().shared().applications();
    const CapturedLog log;
    EXPECT_EQ(applications.importGenerations("a"),
              (ImportGenerations{{"a", 0}, {"b", 1}, {"c d", 2}, {"e", 3}}));
    EXPECT_EQ(log.text(), "WARN ApplicationManager: Error decoding import: %ff\n");
    std::set<Str> apps{"b", "f"};
    EXPECT_TRUE(applications.expandImports(apps));
    EXPECT_EQ(apps, (std::set<Str>{"a", "b", "c d", "e", "f"}));
    apps = {"f", "gone"};
    EXPECT_FALSE(applications.expandImports(apps));
    EXPECT_EQ(apps, (std::set<Str>{"f", "gone"}));
}

TEST(ApplicationManager, ASecondScanTellsWhatBecameDifferent)
{
    ConfTree tree;
    tree.put("apps/changed/local/app.conf", "[install]\nstate = enabled\n");
    tree.put("apps/same/local/app.conf", "[install]\nstate = disabled\n");
    SharedConfServices &services = tree.setup().shared();
    tree.put("apps/changed/local/app.conf", "[install]\nstate = disabled\n");
    tree.put("apps/fresh/local/t.conf", "");
    for (IConfPathMapper *const mapper : services.mappers().mappers()) {
        mapper->reload("");
    }
    const CapturedLog log;
    for (const bool detectsChanges : {true, true, false}) {
        services.applications().rescan(detectsChanges);
        EXPECT_EQ(log.text(), "INFO ApplicationManager: Detected app modification: changed\n"
                              "INFO ApplicationManager: Detected app creation: fresh\n");
        EXPECT_FALSE(services.applications().isUsable("changed"));
        EXPECT_TRUE(services.applications().isUsable("fresh"));
    }
}

} // namespace
} // namespace velmox
