#include "conf/ground/reserved_name.h"
#include "conf/root/path_forms.h"
#include "conf/root/placeholders.h"
#include "conf/root/setting_values.h"
#include "util/match/regex.h"

namespace velmox {
namespace {

TEST(TimeWithUnit, GivesMilliseconds)
{
    constexpr std::pair<const char *, std::uint64_t> kTimes[] = {
        {"10", 10'000},
        {"1500us", 1},
        {"250ms", 250},
        {"3ds", 300},
        {"2 Secs", 2000},
        {"m", 60'000},
        {"1h", 3'600'000},
        {"1week", 604'800'000},
        {"1mon", 2'592'000'000},
        {"1y", 31'536'000'000},
        {"18446744073709551615ms", 18'446'744'073'709'551'615u},
        {"18446744073709551s", 18'446'744'073'709'551'000u}};
    for (const auto &[text, milliseconds] : kTimes) {
        EXPECT_EQ(millisecondsOfTime(text), milliseconds) << text;
    }
    for (const char *const text : {"18446744073709551616ms", "18446744073709552s", "", "  ", "-1", "+1",
                                   "1.5s", "10 parsecs", "10s 5"}) {
        EXPECT_FALSE(millisecondsOfTime(text)) << text;
    }
}

TEST(BlacklistPattern, TurnsWildcardsIntoExpressions)
{
    EXPECT_EQ(blacklistPattern(R"(C:\etc\*.conf)"), R"(C:\\etc\\[^\\]*\.conf)");
    EXPECT_EQ(blacklistPattern("...x...."), R"(.*x.*\.)");
    const Regex regex(blacklistPattern(R"(...\apps\*\local\a.conf)"), false, 0);
    const auto matches = [&regex](const char *path) { return regex.match(Str(path), nullptr, false, true); };
    EXPECT_TRUE(matches(R"(C:\x\apps\search\local\a.conf)"));
    EXPECT_FALSE(matches(R"(C:\x\apps\search\deep\local\a.conf)"));
    EXPECT_FALSE(matches(R"(C:\x\apps\search\local\abconf)"));
}

TEST(PathPattern, MatchesLevelByLevel)
{
    // Below "C:\\x\\".
    const auto matches = [](const char *path, const char *pattern) {
        return matchesPathPattern(Pathname(u"C:\\x").join(path), Pathname(u"c:\\X").join(pattern));
    };
    constexpr std::pair<const char *, const char *> kMatching[] = {
        {"search\\local", "*\\LOCAL"}, {"\u00E4pp", "\u00C4*"}, {".git", ".*"},  {"local.meta", "*.meta"},
        {"acbab", "a*b*ab"},           {"aab", "*ab*"},         {"[A]?", "[a]?"}};
    for (const auto &[path, pattern] : kMatching) {
        EXPECT_TRUE(matches(path, pattern)) << path << " " << pattern;
    }
    constexpr std::pair<const char *, const char *> kOthers[] = {
        {"a\\b\\local", "*\\local"},  {"local", "*\\local"}, {"..", "*"},   {"..", ".*"},
        {"local.meta.bak", "*.meta"}, {"aba", "a*b*ab"},     {"abc", "a.c"}};
    for (const auto &[path, pattern] : kOthers) {
        EXPECT_FALSE(matches(path, pattern)) << path << " " << pattern;
    }
}

TEST(PathPattern, TellsLevelsBelowAFolder)
{
    std::vector<Pathname> levels = {u"left over"};
    EXPECT_TRUE(levelsBelow(u"c:\\ETC\\apps\\Search\\local", u"C:\\etc\\apps", levels));
    EXPECT_EQ(levels, (std::vector<Pathname>{u"Search", u"local"}));
    EXPECT_TRUE(levelsBelow(u"C:\\etc", u"C:\\etc", levels));
    EXPECT_TRUE(levels.empty());
    EXPECT_FALSE(levelsBelow(u"C:\\etc2", u"C:\\etc", levels));
    EXPECT_FALSE(levelsBelow(u"C:", u"C:\\etc", levels));
    EXPECT_EQ(cleanedPath(u"C:/etc//apps\\/x/"), u"C:\\etc\\apps\\x");
}

TEST(Placeholders, AreFilledInOrRefused)
{
    const PlaceholderVariables variables = {
        {"apps-base", R"(C:\etc\apps)"},
        {"app", "search"},
        {"empty", ""},
        {"nested", "<$app$>"},
        {"dollar", placeholderLiteral("a$app$b")},
        {"host.1", "one"},
        {"host.2", "two"},
        {"host.x", "three"},
        {"loop", "$pool$"},
        {"pool", "$loop$"},
    };
    static constexpr const char *kCases[][2] = {
        {"$apps-base$/$app$/local", R"(C:\etc\apps/search/local)"},
        {"$nested$", "<search>"},
        {"$nested{recurse=no}$", "<$app$>"},
        {"$dollar$ and $dollar{recurse=no}$", "a$app$b and a$$app$$b"},
        {"$unknown{default=*}$ $app{default=*}$ [$empty{default=*}$]", "* search []"},
        {"$unknown{default=\"a,b\", required=no}$", "a,b"},
        {"$$app$$", "$app$"},
        {"$app", "$app"},
        // The dollar signs between two placeholders that touch are doubled.
        {"$app$$app$", "$app$app$"},
        {"$host.*$", "host.1=one,host.2=two,host.x=three"},
        {"$host.#$", "host.1=one,host.2=two"},
        {"$host.*{delim=\", \",format=$VAL@$KEY,key_regex=.*[^1]}$", "two@host.2, three@host.x"},
        {"$app{key_regex=.*}$", "app=search"},
        {"x $gone{required=yes}$",
         "Error while replacing variable name='gone'. Could not find variable in the argument map."},
        {"$loop$", "Error while replacing variable name='loop'. The variable refers to itself."},
        {"$app{color=red}$", "Error while replacing variable name='app'. Unknown option: color"},
    };
    for (const auto &[text, expected] : kCases) {
        Str expanded;
        try {
            expanded = expandPlaceholders(text, variables);
        } catch (const PlaceholderException &exception) {
            expanded = exception.message();
        }
        EXPECT_EQ(expanded, expected) << text;
    }
    EXPECT_THROW(expandPlaceholders("$app{key_regex=(}$", variables), PlaceholderException);
}

TEST(ReservedName, NamesAreKnownInAnyCaseAndWithAnExtension)
{
    for (const char *device :
         {"con",  "PRN",  "Aux",     "nul",      "CONIN$", "conout$", "com1", "COM9", "lpt1",  "Lpt9",
          "COM¹", "lpt³", "con.txt", "nul .a.b", "com1  ", "aux.",    ".",    "..",   "anna.", "anna "}) {
        EXPECT_TRUE(isReservedName(device)) << device;
    }
    for (const char *name : {"", "co", "con1", "com", "com0", "com10", "lpt", "lpt⁴", "xcon", "con_", " con",
                             ".con", "console.txt", "comx", "clock$"}) {
        EXPECT_FALSE(isReservedName(name)) << name;
    }
}

} // namespace
} // namespace velmox
