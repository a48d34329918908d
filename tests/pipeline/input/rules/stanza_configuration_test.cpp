#include "pipeline/input/rules/filter_block.h"
#include "pipeline/input/rules/registry_operations.h"
#include "tests/pipeline/input/rules/stanzas.h"

namespace velmox {
namespace {

using testing::StanzaSet;

TEST(StanzaConfiguration, OnlyEnabledStanzasWithThePrefixCountAndWhatTheyLeaveOutHasItsDefault)
{
    StanzaSet set;
    set.add("default", {{"hive", ".*"}}).add("regmon:foo").add("WinRegMon://off", {{"disabled", "1"}});
    EXPECT_EQ(set.add("WinRegMon://maybe", {{"disabled", "maybe"}}).group(), nullptr);
    set.add("WINREGMON:b").add("winregmon:c://d", {{"index", "other"}, {"baseline", "1"}, {"type", "a|b"}});
    set.add("WinRegMon://a", {{"index", ""}, {"baseline", "maybe"}, {"baseline_interval", ""}});
    const auto group = set.group();
    Str configs;
    for (const SystemMonitoringConfig &config : group->configs) {
        configs << config.name << ' ' << config.index << ' ' << config.baselineInterval
                << (config.baseline ? " base" : "");
        for (const Str &type : config.types) {
            configs << ' ' << type;
        }
        configs << '\n';
    }
    EXPECT_EQ(configs, "b main 86400 rename set delete create\na main 86400 rename set delete create\nd "
                       "other 86400 base a b\n");
    EXPECT_TRUE(group->passes({"c:\\x.exe", "\\registry\\machine\\a", "delete"}));
    EXPECT_FALSE(group->passes({"", "\\registry\\machine\\a", "open"}));
    EXPECT_THROW(set.add("WinRegMon://z", {{"hive", "("}}).group(), RegexException);
    // Their names differ by the prefix alone, and neither takes the other's place.
    StanzaSet twins;
    twins.add("WinRegMon://a", {{"type", "set"}}).add("winregmon:a", {{"type", "open"}});
    for (const char *type : {"set", "open"}) {
        EXPECT_TRUE(twins.group()->passes({"", "\\registry\\machine\\a", type})) << type;
    }
}

TEST(StanzaConfiguration, APlainPathAdmitsOneComponentMoreAndAPatternIsTakenAsItIs)
{
    const struct
    {
        const char *hive, *pattern, *passing, *failing;
    } rows[] = {
        {"HKLM\\\\Soft", "\\\\registry\\\\machine\\\\soft\\\\?([^\\\\\r\n]+){0,1}",
         "\\registry\\machine\\soft", "\\registry\\machine\\soft\\key\\value"},
        {"HKLM\\\\Soft", nullptr, "\\registry\\machine\\soft\\value", "\\registry\\user\\soft"},
        // The backslash of the suffix is optional, so a sibling whose name goes on counts as well.
        {"HKLM\\\\Soft", nullptr, "\\registry\\machine\\software", "\\registry\\machine\\sof"},
        // The pattern is folded with its escapes.
        {"HKLM\\\\Soft\\S+", "\\\\registry\\\\machine\\\\soft\\s+", "\\registry\\machine\\soft \t",
         "\\registry\\machine\\softx"},
        {"HKCU\\\\a$", "\\\\registry\\\\user\\\\s-1-5-21-7\\\\a$", "\\registry\\user\\s-1-5-21-7\\a",
         "\\registry\\user\\s-1-5-21-7\\ab"},
    };
    for (const auto &row : rows) {
        StanzaSet set;
        set.add("WinRegMon://x", {{"hive", row.hive}});
        const auto group = set.group();
        EXPECT_TRUE(row.pattern == nullptr || group->configs[0].hive.pattern() == row.pattern) << row.hive;
        for (const bool inclusive : {true, false}) {
            EXPECT_EQ(set.group(inclusive)->passes({"", row.passing, "set"}), inclusive) << row.passing;
            EXPECT_EQ(set.group(inclusive)->passes({"", row.failing, "set"}), !inclusive) << row.failing;
        }
    }
}

TEST(StanzaConfiguration, TheDriversMasksFollowTheStanzas)
{
    using Stanza = std::pair<const char *, const char *>;
    const struct
    {
        std::vector<Stanza> stanzas; // type and hive
        std::uint32_t ops, hives;
    } rows[] = {
        {{{"set", "HKLM\\\\.*"}, {"create|delete", "HKCU\\\\x"}, {"open", "HKEY_USERS\\\\.*"}}, 29, 3},
        {{{"query|close|rename", "(\\\\registry\\\\user|nothing)"}}, 98, 1},
        {{{"SET", "HKLM"}}, 0, 2}, // types are not folded for the driver
        {{{"", "HKLM"}}, 77, 2},
        {{{"set", "elsewhere"}}, 4, 3},
        {{{"set", "hklm\\\\x"}, {"set", "elsewhere"}, {"set", "HKLM\\\\x"}}, 4, 3},
    };
    for (const auto &row : rows) {
        StanzaSet set;
        for (const auto &[type, hive] : row.stanzas) {
            set.add(Str::fromFormat("WinRegMon://%s", hive), {{"type", type}, {"hive", hive}});
        }
        const MonitorFilterConfig block = makeFilterBlock(*set.group(), set.hives, registryOperationMasks());
        EXPECT_EQ(block.ops, row.ops);
        EXPECT_EQ(block.hives, row.hives);
        EXPECT_EQ(block.events, 7u);
        EXPECT_EQ(block.status, 0x17u);
    }
    StanzaSet piece;
    const auto group = piece.add("WinRegMon://a", {{"type", "(set|delete)"}}).group();
    EXPECT_THROW(makeFilterBlock(*group, piece.hives, registryOperationMasks()), RegexException);
}

TEST(MonitorRules, TheLongestHivePatternAndTheLastProcessPatternNameStanzaAndIndex)
{
    StanzaSet set;
    set.add("WinRegMon://a", {{"hive", "HKLM\\\\Software\\\\.*"}, {"index", "long"}, {"proc", "reg.exe"}});
    set.add("WinRegMon://b", {{"hive", "HKLM\\\\.*"}, {"index", "short"}, {"proc", "reg"}});
    set.add("WinRegMon://c", {{"hive", "HKLM\\\\Softwar.\\\\.*"}, {"index", "as long"}, {"proc", "cmd"}});
    MonitorRules rules;
    Str stanza = "none";
    EXPECT_EQ(rules.getIndexAndStanzaForRegmon("\\REGISTRY\\MACHINE\\x", stanza), "");
    EXPECT_EQ(rules.getIndexAndStanzaForProcmon("reg.exe", stanza), "");
    EXPECT_EQ(stanza, "none");
    MonitorRules filled;
    ASSERT_TRUE(filled.insert(kRegmonFilters, set.group()) && filled.insert(kProcmonFilters, set.group()));
    EXPECT_FALSE(filled.insert(kRegmonFilters, set.group()));
    EXPECT_EQ(filled.getIndexAndStanzaForRegmon("\\REGISTRY\\MACHINE\\Software\\X", stanza), "long");
    EXPECT_EQ(stanza, "a") << "the first of equal length";
    EXPECT_EQ(filled.getIndexAndStanzaForRegmon("\\REGISTRY\\MACHINE\\Other", stanza), "short");
    EXPECT_EQ(filled.getIndexAndStanzaForRegmon("\\REGISTRY\\USER\\x", stanza), "");
    EXPECT_EQ(stanza, "b");
    stanza.clear();
    EXPECT_EQ(filled.getIndexAndStanzaForProcmon("C:\\REG.EXE", stanza), "short");
    EXPECT_EQ(stanza, "b");
}

} // namespace
} // namespace velmox
