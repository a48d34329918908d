#include "conf/store/application_manager.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "tests/conf/conf_root.h"

namespace velmox {
namespace {

/// The record of an app in one line; the booleans in their order, with "+" for true.
Str tell(const ConfRoot &root, const char *app)
{
    ApplicationInfo info;
    const Str refusal =
        raisedBy<ApplicationDoesNotExistException>([&] { root.shared().applications().getInfo(app, info); });
    if (refusal != "nothing") {
        return refusal;
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
    const ConfRoot root;
    root.write("apps/plain/default/t.conf", "");
    root.write("apps/told/default/app.conf",
               "[install]\nstate = enabled\nis_configured = 1\nallows_disable = no\n"
               "state_change_requires_restart = yes\n[package]\nid = p\ncheck_for_updates = 0\n"
               "[launcher]\nversion = 1.0\n");
    root.write("apps/told/local/app.conf", "[launcher]\nversion = 2.0\n");
    root.write("apps/odd/local/app.conf",
               "[default]\nversion = 3\n[install]\nstate =\nis_configured = maybe\n"
               "allows_disable = maybe\n[package]\nid =\n");
    root.write("apps/off/local/app.conf", "[install]\nstate = Enabled\n");
    root.write("apps/system/local/app.conf", "[install]\nstate = disabled\n");
    root.write("apps/.git/local/app.conf", "");
    root.write("apps/file", "");
    root.write("slave-apps/twice/local/app.conf", "[package]\nid = slave\n");
    root.write("apps/twice/local/t.conf", "");
    const ConfLog log(root);
    static constexpr const char *kApps[][2] = {
        {"plain", "+--+++ plain "}, {"told", "+++--- p 2.0"},     {"odd", "+--+++ odd 3"},
        {"off", "---+++ off "},     {"system", "+--+++ system "}, {"twice", "+--+-+ slave "},
    };
    for (const auto &[app, told] : kApps) {
        EXPECT_EQ(tell(root, app), told);
    }
    EXPECT_TRUE(log.text().contains("ERROR ApplicationManager: Unexpected duplicate app: twice\n"));
    for (const char *const name : {".git", "file", "Plain", ""}) {
        EXPECT_EQ(tell(root, name), Str("Cannot import non-existent application: ") << name);
    }
}

TEST(ApplicationManager, FollowsImportsStepByStep)
{
    const ConfRoot root;
    root.write("apps/a/metadata/default.meta", "[]\nimport = b, gone, a, %ff\n");
    root.write("apps/b/metadata/default.meta", "[]\nimport = c%20d, a\n");
    root.write("apps/c d/metadata/default.meta", "[]\nimport = b, e\n");
    root.write("apps/e/metadata/default.meta", "[t]\nexport = system\n");
    root.write("apps/f/default/t.conf", "");
    const ApplicationManager &applications = root.shared().applications();
    const ConfLog log(root);
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

} // namespace
} // namespace velmox
