#include "conf/cache/user_conf_cache.h"
#include "conf/conf_path_exceptions.h"
#include "conf/property_pages_exceptions.h"
#include "conf/tree/conf_acl.h"
#include "conf/tree/conf_user_context.h"
#include "tests/conf/conf_tree.h"
#include "tests/support/function_thread.h"

namespace velmox {
namespace {

using testing::ConfTree;
using testing::FunctionThread;

/// "value level app user origin" of a key, or "-".
Str tell(const Stanzas &stanzas, const char *stanza, const char *key)
{
    const auto found = stanzas.find(stanza);
    if (found == stanzas.end() || !found->second.properties.contains(key)) {
        return "-";
    }
    const PropertyValue &value = found->second.properties.at(key);
    return Str::fromFormat("%s %d %s %s %s", value.value.c_str(), value.level, value.app.c_str(),
                           value.user.c_str(), value.originStanza.c_str());
}

Str names(const Stanzas &stanzas)
{
    Str text;
    for (const auto &[name, stanza] : stanzas) {
        text << name << " ";
    }
    return text;
}

TEST(PropertyPagesRead, TheHighestLevelWinsInAContextAndTheFirstLayerOutsideOfOne)
{
    ConfTree tree;
    // The name of a key lists the layers that set it, its value says which one.
    tree.put("system/local/t.conf", "[s]\nsl_al_ad_sd=sl\nsl_ad=sl\nsl_sd=sl\n");
    tree.put("users/u/a/local/t.conf", "[s]\nu_al=u\n");
    tree.put("users/u/b/local/t.conf", "[s]\nub=ub\n");
    tree.put("apps/a/local/t.conf", "[s]\nsl_al_ad_sd=al\nal_ad=al\nal_be=al\nu_al=al\nal_sd=al\n");
    tree.put("apps/a/default/t.conf", "[s]\nsl_al_ad_sd=ad\nsl_ad=ad\nal_ad=ad\nae_i=ad\nad_i=ad\n");
    tree.put("apps/a/metadata/default.meta", "[]\nimport = i, j\n[t/s/ae_i]\nexport = system\n");
    tree.put("apps/b/default/t.conf", "[s]\nal_be=be\nbe_be_sd=be\nbn=bn\nbe_i=be\n[only]\nk=v\n");
    tree.put("apps/b/metadata/default.meta", "[t/s]\nexport = system\n[t/s/bn]\nexport = none\n");
    tree.put("apps/c/default/t.conf", "[s]\nbe_be_sd=ce\n");
    tree.put("apps/c/metadata/default.meta", "[t]\nexport = system\n");
    tree.put("apps/i/default/t.conf", "[s]\nae_i=i\nad_i=i\nbe_i=i\ni_j=i\ni_k=i\n");
    tree.put("apps/i/metadata/default.meta", "[]\nimport = k\n");
    tree.put("apps/j/default/t.conf", "[s]\ni_j=j\n");
    tree.put("apps/k/default/t.conf", "[s]\ni_k=k\n");
    tree.put("system/default/t.conf", "[s]\nsl_al_ad_sd=sd\nsl_sd=sd\nbe_be_sd=sd\nal_sd=sd\n");

    const Stanzas plain = tree.read("t");
    const Stanzas app = tree.read("t", "a");
    const Stanzas user = tree.read("t", "a", "u");
    const struct
    {
        const char *key;
        const char *plain;
        const char *app;
        const char *user;
    } kRows[] = {
        {"sl_al_ad_sd", "sl 1 system nobody s", "al 5 a nobody s", "al 5 a nobody s"},
        {"sl_ad", "sl 1 system nobody s", "ad 5 a nobody s", "ad 5 a nobody s"},
        {"sl_sd", "sl 1 system nobody s", "-", "sl 1 system nobody s"},
        {"al_sd", "al 5 a nobody s", "al 5 a nobody s", "al 5 a nobody s"},
        {"al_ad", "al 5 a nobody s", "al 5 a nobody s", "al 5 a nobody s"},
        {"u_al", "al 5 a nobody s", "al 5 a nobody s", "u 6 a u s"},
        {"ub", "-", "-", "-"},
        {"al_be", "al 5 a nobody s", "al 5 a nobody s", "al 5 a nobody s"},
        {"be_be_sd", "be 5 b nobody s", "-", "ce 2 c nobody s"},
        {"bn", "bn 5 b nobody s", "-", "-"},
        {"ae_i", "ad 5 a nobody s", "ad 4 a nobody s", "ad 4 a nobody s"},
        {"ad_i", "ad 5 a nobody s", "ad 5 a nobody s", "ad 5 a nobody s"},
        {"be_i", "be 5 b nobody s", "-", "i 3 i nobody s"},
        {"i_j", "i 5 i nobody s", "-", "j 3 j nobody s"},
        {"i_k", "i 5 i nobody s", "-", "i 3 i nobody s"},
    };
    for (const auto &row : kRows) {
        EXPECT_EQ(tell(plain, "s", row.key), row.plain) << row.key;
        EXPECT_EQ(tell(app, "s", row.key), row.app) << row.key;
        EXPECT_EQ(tell(user, "s", row.key), row.user) << row.key;
    }
    EXPECT_EQ(names(plain), "only s ");
    EXPECT_EQ(names(user), "s ");
    EXPECT_EQ(tell(tree.read("t", "a", "nobody"), "s", "u_al"), "al 5 a nobody s");
}

TEST(PropertyPagesRead, StanzasInheritFromDefaultAndMayBeDisabledByIt)
{
    ConfTree tree;
    tree.put("apps/x/default/t.conf", "x=1\ndisabled=1\n[a]\nx=2\ndisabled=0\n[b]\n[c]\ndisabled=\n");
    tree.put("system/default/t.conf", "[a]\ny=s\n[default]\ny=d\nz=d\n");

    const Stanzas all = tree.read("t");
    EXPECT_EQ(names(all), "a b c default ");
    EXPECT_EQ(tell(all, "a", "x"), "2 5 x nobody a");
    EXPECT_EQ(tell(all, "b", "x"), "1 5 x nobody default");
    EXPECT_EQ(tell(all, "a", "y"), "s 1 system nobody a");
    EXPECT_EQ(tell(all, "b", "y"), "d 1 system nobody default");
    EXPECT_EQ(tell(all, "default", "x"), "1 5 x nobody default");
    EXPECT_EQ(names(tree.read("t", "", "", DisabledMode::OnlyEnabled)), "a c ");
    EXPECT_EQ(names(tree.read("t", "", "", DisabledMode::OnlyDisabled)), "b default ");
    EXPECT_EQ(all.at("a").self.originStanza, "a");
    EXPECT_EQ(all.at("b").appName(), "x");

    RegexStringFilter filter("filter", "^[ab]");
    Stanzas some;
    some["a"].set("x", "mine");
    tree.pages("t").enumerateStanzas(filter, some, DisabledMode::All);
    EXPECT_EQ(names(some), "a b ");
    EXPECT_EQ(some["a"].get("x"), "mine");
    EXPECT_EQ(some["a"].get("y"), "s");
    EXPECT_EQ(filter.checks, 4u);
    EXPECT_EQ(filter.hits, 2u);
    EXPECT_TRUE(tree.read("nothing").empty());
    EXPECT_TRUE(tree.read("nothing", "x", "u").empty());
}

TEST(PropertyPagesRead, ValuesCarryWhatTheirPlaceAndMetadataSay)
{
    ConfTree tree;
    tree.put("apps/a/default/t.conf", "[s]\nd=1\nboth=1\n");
    tree.put("apps/a/local/t.conf", "[s]\nl=1\nboth=2\n");
    tree.put("apps/a/metadata/default.meta", "[t]\naccess = read : [ * ], write : [ Admin ]\nowner = Ann\n"
                                             "[t/s/l]\nowner = Bob\naccess = read : [ r ]\n");
    const PropertiesMap stanza = tree.read("t", "a").at("s");
    EXPECT_EQ(tell({{"s", stanza}}, "s", "d"), "1 5 a ann s");
    EXPECT_EQ(tell({{"s", stanza}}, "s", "l"), "1 5 a bob s");
    EXPECT_FALSE(stanza.properties.at("d").removable);
    EXPECT_TRUE(stanza.properties.at("l").removable);
    EXPECT_TRUE(stanza.properties.at("both").removable);
    EXPECT_FALSE(stanza.properties.at("d").modtime.isMin());
    ASSERT_TRUE(stanza.metadata);
    EXPECT_EQ(stanza.metadata, stanza.properties.at("d").metadata);
    EXPECT_EQ(stanza.properties.at("l").metadata->toStr(), "read : [ r ]");
    // Mapper by mapper, metadata never meets the data that it speaks of.
    EXPECT_EQ(tell(tree.read("t"), "s", "d"), "1 5 a nobody s");
}

TEST(PropertyPagesRead, DisabledAppsAreOutOfSightButForTheirOwnState)
{
    ConfTree tree;
    tree.put("apps/off/default/app.conf", "[install]\nstate = disabled\n");
    tree.put("apps/off/default/t.conf", "[s]\nk=off\n");
    tree.put("apps/on/default/t.conf", "[s]\nk=on\n");
    EXPECT_EQ(tell(tree.read("t"), "s", "k"), "on 5 on nobody s");
    EXPECT_EQ(tree.read("app", "off").at("install").get("state"), "disabled");
    EXPECT_THROW(tree.pages("t", "off"), PropertyPagesDisabledAppException);
}

Str refusal(ConfTree &tree, const ConfContext &context)
{
    try {
        tree.pages("t", context.app, context.user);
        return "nothing";
    } catch (const PropertyPagesException &exception) {
        return exception.message();
    }
}

TEST(PropertyPagesRead, RefusesContextsThatCannotBeRead)
{
    ConfTree tree;
    tree.put("apps/off/default/app.conf", "[install]\nstate = disabled\n");
    const BundlesSetup &setup = tree.setup();
    const Str root = setup.text(setup.root());
    EXPECT_EQ(refusal(tree, {setup, "", "off"}), "Application is disabled: off");
    EXPECT_EQ(refusal(tree, {setup, "u", "off"}), "Application is disabled: off");
    EXPECT_EQ(refusal(tree, {setup, "u", ""}),
              Str::fromFormat("Type = t, Context = (user: u, app: , root: %s), Acting as = u: Cannot read "
                              "configuration if user context is set but app context is not",
                              root.c_str()));
    EXPECT_EQ(refusal(tree, {setup, "u", "x"}), "nothing");

    const Str pages = "P";
    EXPECT_EQ(PropertyPagesNoEntityToShareException(pages, "n").message(),
              "P: Error while sharing or unsharing 'n': No eligible entity");
}

class OneIdentity : public IConfUserContextFactory
{
public:
    explicit OneIdentity(const ConfUserContext &identity) : identity_(identity) {}
    ConfUserContext current() override { return identity_; }
    ConfUserContext named(const Str &user) override { return {user, roles, false}; }

    static inline std::set<Str> roles;

private:
    const ConfUserContext identity_;
};

/// Installs an identity for a scope.
class AsIdentity
{
public:
    explicit AsIdentity(const ConfUserContext &identity)
    {
        ConfUserContextFactory::install(std::make_unique<OneIdentity>(identity));
    }
    ~AsIdentity() { ConfUserContextFactory::install(nullptr); }
};

TEST(PropertyPagesRead, ActsAsTheUserOfTheContextIfTheIdentityMay)
{
    ConfTree tree;
    const ConfContext ann{tree.setup(), "ann", "a"};
    {
        const AsIdentity somebody({"ANN", {}, false});
        EXPECT_EQ(PropertyPages::get("t", ann)->actingUser(), "ann");
        EXPECT_EQ(tree.pages("t", "a", "nobody").actingUser(), "ANN");
        EXPECT_EQ(tree.pages("t", "a").actingUser(), "");
    }
    {
        const AsIdentity somebody({"bob", {}, false});
        EXPECT_EQ(refusal(tree, ann), "User 'bob' could not act as: ann");
    }
    const AsIdentity root({"root", {}, true});
    EXPECT_EQ(PropertyPages::get("t", ann)->actingUser(), "ann");
}

TEST(PropertyPagesRead, AViewFollowsTheRightsOfTheActingUser)
{
    ConfTree tree;
    tree.put("apps/a/default/t.conf", "[open]\nk=1\n[shut]\nk=1\n");
    tree.put("apps/a/metadata/default.meta", "[t]\naccess = read : [ * ]\n[t/shut]\naccess = read : [ r ]\n");
    OneIdentity::roles = {"r"};
    const AsIdentity ann({"ann", {}, false});
    EXPECT_EQ(names(tree.read("t", "a", "ann")), "open shut ");
    OneIdentity::roles.clear();
    EXPECT_EQ(names(tree.read("t", "a", "ann")), "open ");
}

TEST(PropertyPagesRead, TellsWhatTheUserMayDelete)
{
    ConfTree tree;
    tree.put("apps/a/default/t.conf", "[open]\nk=1\n[shut]\nk=1\n");
    tree.put("apps/a/metadata/default.meta",
             "[t]\naccess = read : [ * ], write : [ * ]\n[t/shut]\naccess = read : [ r ]\n");
    OneIdentity::roles.clear();
    const AsIdentity ann({"ann", {}, false});
    UserConfCache cache("t", {tree.setup(), "ann", "a"}, "ann");
    ConfPathTrie deletable;
    cache.collectDeletable(ConfPathTrie::kStanzaLevel, deletable);
    const ConfPathTrie *const type = deletable.find(ConfPathBase("nobody", "a", {"t"}));
    ASSERT_NE(type, nullptr);
    ASSERT_EQ(type->children().size(), 1u);
    EXPECT_EQ(type->children().begin()->first, "open");
    EXPECT_TRUE(type->children().begin()->second->children().empty());
}

TEST(PropertyPagesRead, AnOverwriteThatIsRefusedRemovesNothing)
{
    ConfTree tree;
    tree.put("apps/a/local/t.conf", "[s]\nk=1\n");
    tree.put("apps/a/metadata/default.meta", "[t]\naccess = read : [ * ]\n");
    PropertiesMap desired;
    desired.set("k", "2");
    {
        OneIdentity::roles.clear();
        const AsIdentity ann({"ann", {}, false});
        EXPECT_THROW(tree.pages("t", "a", "nobody").write("a", "s", desired, true),
                     ConfPathPermissionDeniedException);
    }
    tree.pages("t", "a").write("a", "r", desired, false);
    EXPECT_EQ(tree.content("apps/a/local/t.conf"), "[s]\nk = 1\n\n[r]\nk = 2\n");
}

TEST(PropertyPagesRead, EqualRequestsShareOneObject)
{
    ConfTree tree;
    tree.setup();
    PropertyPages *found[4] = {};
    {
        std::vector<std::unique_ptr<FunctionThread>> threads;
        for (PropertyPages *&slot : found) {
            threads.push_back(std::make_unique<FunctionThread>([&] { slot = &tree.pages("t", "a", "u"); }));
            threads.back()->start();
        }
    }
    for (PropertyPages *const pages : found) {
        EXPECT_EQ(pages, found[0]);
    }
    EXPECT_NE(&tree.pages("t", "a"), found[0]);
    EXPECT_NE(&tree.pages("u", "a", "u"), found[0]);
    EXPECT_EQ(PropertyPages::get("t"), PropertyPages::get("t", ConfContext()));
}

} // namespace
} // namespace velmox
