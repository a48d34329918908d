#include "conf/ground/conf_exceptions.h"
#include "tests/conf/conf_root.h"

namespace velmox {
namespace {

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
    const ConfRoot root;
    // The name of a key lists the layers that set it, its value says which one.
    root.write("system/local/t.conf", "[s]\nsl_al_ad_sd=sl\n");
    root.write("users/u/a/local/t.conf", "[s]\nu_al=u\n");
    root.write("users/u/b/local/t.conf", "[s]\nub=ub\n");
    root.write("apps/a/local/t.conf", "[s]\nsl_al_ad_sd=al\nu_al=al\n");
    root.write("apps/a/default/t.conf", "[s]\nsl_al_ad_sd=ad\nae_i=ad\n");
    root.write("apps/a/metadata/default.meta", "[]\nimport = i\n[t/s/ae_i]\nexport = system\n");
    root.write("apps/b/default/t.conf", "[s]\nbe_be_sd=be\nbn=bn\nbe_i=be\nbl_bd=bd\n[only]\nk=v\n");
    root.write("apps/b/local/t.conf", "[s]\nbl_bd=bl\n");
    root.write("apps/b/metadata/default.meta",
               "[]\nexport = system\n[t]\nexport = none\n[t/s]\nexport = system\n[t/s/bn]\nexport = none\n");
    root.write("apps/c/default/t.conf", "[s]\nbe_be_sd=ce\n");
    root.write("apps/c/metadata/default.meta", "[t]\nexport = system\n");
    root.write("apps/i/default/t.conf", "[s]\nae_i=i\nbe_i=i\ni_k=i\n");
    root.write("apps/i/metadata/default.meta", "[]\nimport = k\n");
    root.write("apps/k/default/t.conf", "[s]\ni_k=k\n");
    root.write("apps/off/default/app.conf", "[install]\nstate = disabled\n");
    root.write("apps/off/default/t.conf", "[s]\nbe_be_sd=off\nub=off\n");
    root.write("apps/off/metadata/default.meta", "[]\nexport = system\n");
    root.write("system/default/t.conf", "[s]\nsl_al_ad_sd=sd\nbe_be_sd=sd\n[default]\nd=sd\n");
    static constexpr const char *kRows[][4] = {
        // key, and what a reader sees without a context, in the app "a", and there as the user "u"
        {"sl_al_ad_sd", "sl 1 system nobody s", "al 5 a nobody s", "al 5 a nobody s"},
        {"u_al", "al 5 a nobody s", "al 5 a nobody s", "u 6 a u s"},
        {"ub", "-", "-", "-"},
        {"bl_bd", "bl 5 b nobody s", "-", "bl 2 b nobody s"},
        {"d", "sd 1 system nobody default", "-", "sd 1 system nobody default"},
        {"be_be_sd", "be 5 b nobody s", "-", "ce 2 c nobody s"},
        {"bn", "bn 5 b nobody s", "-", "-"},
        {"ae_i", "ad 5 a nobody s", "ad 4 a nobody s", "ad 4 a nobody s"},
        {"be_i", "be 5 b nobody s", "-", "i 3 i nobody s"},
        {"i_k", "i 5 i nobody s", "-", "i 3 i nobody s"},
    };
    const Stanzas seen[] = {root.stanzas("t"), root.stanzas("t", "a"), root.stanzas("t", "a", "u")};
    for (const auto &row : kRows) {
        for (const unsigned reader : {0u, 1u, 2u}) {
            EXPECT_EQ(tell(seen[reader], "s", row[0]), row[1 + reader]) << row[0] << " " << reader;
        }
    }
    EXPECT_EQ(names(seen[0]), "default only s ");
    EXPECT_EQ(names(seen[2]), "default s ");
    EXPECT_EQ(tell(root.stanzas("t", "a", "nobody"), "s", "u_al"), "al 5 a nobody s");
}

TEST(PropertyPagesRead, StanzasInheritFromDefaultAndMayBeDisabledByIt)
{
    const ConfRoot root;
    root.write("apps/x/default/t.conf", "x=1\ndisabled=1\n[a]\nx=2\ndisabled=0\n[b]\n[c]\ndisabled=\n");
    root.write("system/default/t.conf", "[a]\ny=s\n[default]\ny=d\nz=d\n");
    const Stanzas all = root.stanzas("t");
    EXPECT_EQ(names(all), "a b c default ");
    static constexpr const char *kRows[][3] = {
        {"a", "x", "2 5 x nobody a"},
        {"b", "x", "1 5 x nobody default"},
        {"a", "y", "s 1 system nobody a"},
        {"b", "y", "d 1 system nobody default"},
        {"default", "x", "1 5 x nobody default"},
    };
    for (const auto &[stanza, key, told] : kRows) {
        EXPECT_EQ(tell(all, stanza, key), told);
    }
    EXPECT_EQ(names(root.stanzas("t", "", "", DisabledMode::OnlyEnabled)), "a c ");
    EXPECT_EQ(names(root.stanzas("t", "", "", DisabledMode::OnlyDisabled)), "b default ");
    EXPECT_EQ(all.at("a").self.originStanza, "a");
    EXPECT_EQ(all.at("b").appName(), "x");

    RegexStringFilter filter("filter", "^[ab]");
    Stanzas some;
    some["a"].set("x", "mine");
    root.pages("t").enumerateStanzas(filter, some, DisabledMode::All);
    EXPECT_EQ(names(some), "a b ");
    EXPECT_EQ(some["a"].get("x") << some["a"].get("y"), "mines");
    EXPECT_EQ(filter.checks, 4u);
    EXPECT_EQ(filter.hits, 2u);
    EXPECT_TRUE(root.stanzas("nothing").empty());
    EXPECT_TRUE(root.stanzas("nothing", "x", "u").empty());
}

TEST(PropertyPagesRead, ValuesCarryWhatTheirPlaceAndMetadataSay)
{
    const ConfRoot root;
    root.write("apps/a/default/t.conf", "[s]\nd=1\nboth=1\n[monitor://./x]\n");
    root.write("apps/a/local/t.conf", "[s]\nl=1\nboth=2\n");
    root.write("apps/b/default/t.conf", "[monitor://./x]\n");
    root.write("apps/a/metadata/default.meta", "[t]\naccess = read : [ * ], write : [ Admin ]\nowner = Ann\n"
                                               "[t/s/l]\nowner = Bob\naccess = read : [ r ]\n");
    const Stanzas stanzas = root.stanzas("t", "a");
    EXPECT_EQ(tell(stanzas, "s", "d"), "1 5 a ann s");
    EXPECT_EQ(tell(stanzas, "s", "l"), "1 5 a bob s");
    const PropertiesMap &stanza = stanzas.at("s");
    EXPECT_FALSE(stanza.properties.at("d").removable);
    EXPECT_TRUE(stanza.properties.at("l").removable);
    EXPECT_TRUE(stanza.properties.at("both").removable);
    EXPECT_FALSE(stanza.properties.at("d").modtime.isMin());
    ASSERT_TRUE(stanza.metadata);
    EXPECT_EQ(stanza.metadata, stanza.properties.at("d").metadata);
    EXPECT_EQ(stanza.properties.at("l").metadata->toStr(), "read : [ r ]");
    // Mapper by mapper, metadata never meets the data that it speaks of.
    const ConfLog log(root);
    EXPECT_EQ(tell(root.stanzas("t"), "s", "d"), "1 5 a nobody s");
    EXPECT_EQ(log.text(),
              "WARN BaseConfCacheBuilder: Stanza has an expansion [monitor://ROOT/apps/a/x], ignoring "
              "alternate expansion [monitor://ROOT/apps/b/x] in t.conf\n");
}

TEST(PropertyPagesRead, RefusesContextsThatCannotBeRead)
{
    const ConfRoot root;
    root.write("apps/off/default/app.conf", "[install]\nstate = disabled\n");
    root.write("apps/off/default/t.conf", "[s]\nk=off\n");
    root.write("apps/on/default/t.conf", "[s]\nk=on\n");
    for (const char *const user : {"", "u"}) {
        EXPECT_EQ(raisedBy<PropertyPagesDisabledAppException>([&] { root.pages("t", "off", user); }),
                  "Application is disabled: off");
    }
    EXPECT_TRUE(raisedBy<PropertyPagesContextException>([&] {
                    root.pages("t", "", "u");
                }).endsWith(": Cannot read configuration if user context is set but app context is not"));
    root.pages("t", "x", "u");
    EXPECT_EQ(tell(root.stanzas("t"), "s", "k"), "on 5 on nobody s");
    EXPECT_EQ(root.stanzas("app", "off").at("install").get("state"), "disabled");
}

/// The identity of the process, and the roles of all users, for a scope.
class AsIdentity
{
public:
    explicit AsIdentity(const ConfUserContext &identity)
    {
        ConfUserContextFactory::install(std::make_unique<Factory>(identity));
    }
    ~AsIdentity()
    {
        ConfUserContextFactory::install(nullptr);
        roles.clear();
    }

    static inline std::set<Str> roles;

private:
    struct Factory : IConfUserContextFactory
    {
        explicit Factory(const ConfUserContext &who) : identity(who) {}
        ConfUserContext current() override { return identity; }
        ConfUserContext named(const Str &user) override { return {user, roles, false}; }
        const ConfUserContext identity;
    };
};

TEST(PropertyPagesRead, AProgramWithUsersActsWithTheirRights)
{
    const ConfRoot root;
    root.write("apps/a/default/t.conf", "[open]\nk=1\n[shut]\nk=1\n");
    root.write("apps/a/metadata/default.meta",
               "[t]\naccess = read : [ * ], write : [ * ]\n[t/shut]\naccess = read : [ r ]\n"
               "[w]\naccess = read : [ * ]\n");
    root.write("apps/a/local/w.conf", "[s]\nk=1\n");
    {
        const AsIdentity privileged({"root", {}, true});
        EXPECT_EQ(root.pages("t", "a", "ann").actingUser(), "ann");
    }
    const AsIdentity ann({"ANN", {}, false});
    EXPECT_EQ(root.pages("t", "a", "ann").actingUser(), "ann");
    EXPECT_EQ(root.pages("t", "a", "nobody").actingUser(), "ANN");
    EXPECT_EQ(root.pages("t", "a").actingUser(), "");
    EXPECT_EQ(raisedBy<PropertyPagesImpersonationException>([&] { root.pages("t", "a", "bob"); }),
              "User 'ANN' could not act as: bob");
    AsIdentity::roles = {"r"};
    EXPECT_EQ(names(root.stanzas("t", "a", "ann")), "open shut ");
    AsIdentity::roles.clear();
    EXPECT_EQ(names(root.stanzas("t", "a", "ann")), "open ");
    // An overwrite that is refused removes nothing.
    PropertiesMap desired;
    desired.set("k", "2");
    EXPECT_THROW(root.pages("w", "a", "nobody").write("a", "s", desired, true),
                 ConfPathPermissionDeniedException);
    root.pages("w", "a").write("a", "r", desired, false);
    EXPECT_EQ(root.text("apps/a/local/w.conf"), "[s]\nk = 1\n\n[r]\nk = 2\n");
}

TEST(PropertyPagesRead, EqualRequestsShareOneObject)
{
    const ConfRoot root;
    std::array<PropertyPages *, 4> found{};
    {
        std::vector<std::jthread> threads;
        for (PropertyPages *&slot : found) {
            threads.emplace_back([&] { slot = &root.pages("t", "a", "u"); });
        }
    }
    EXPECT_EQ(std::set(found.begin(), found.end()).size(), 1u);
    EXPECT_NE(&root.pages("t", "a"), found[0]);
    EXPECT_NE(&root.pages("u", "a", "u"), found[0]);
    EXPECT_EQ(PropertyPages::get("t"), PropertyPages::get("t", ConfContext()));
}

} // namespace
} // namespace velmox
