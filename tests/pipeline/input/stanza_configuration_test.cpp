#include "pipeline/input/drive_map.h"
#include "pipeline/input/filter_block.h"
#include "pipeline/input/registry_operations.h"
#include "pipeline/input/stanza_configuration.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

using Params = std::vector<std::pair<Str, Str>>;

class StanzaConfigurationTest : public testing::Test
{
public:
    StanzaConfigurationTest() { hives_.fill(u"\\REGISTRY\\User\\S-1-5-21-0-0-0-1000"); }

    StanzaConfigurationTest &stanza(const Str &name, const Params &params = {})
    {
        PropertiesMap &map = stanzas_[name];
        for (const auto &[key, value] : params) {
            map.set(key, value);
        }
        return *this;
    }

    std::unique_ptr<MonitorFilterGroup> group(bool inclusive = true)
    {
        return makeFilterGroup(stanzas_, {"main", inclusive}, hives_);
    }

    MonitorFilterConfig block() { return makeFilterBlock(*group(), hives_, registryOperationMasks()); }

    static bool passes(MonitorFilterGroup &group, const char *keyPath, const char *type = "set",
                       const char *process = "")
    {
        return group.passes({process, keyPath, type});
    }

    std::map<Str, PropertiesMap> stanzas_;
    HiveNames hives_;
};

TEST_F(StanzaConfigurationTest, OnlyEnabledStanzasWithThePrefixCount)
{
    stanza("default", {{"hive", ".*"}}).stanza("regmon:foo").stanza("WinRegMon://off", {{"disabled", "1"}});
    stanza("WinRegMon://maybe", {{"disabled", "maybe"}});
    EXPECT_EQ(group(), nullptr);
    stanza("WINREGMON:b").stanza("WinRegMon://a").stanza("winregmon:c://d");
    const auto made = group();
    ASSERT_EQ(made->configs.size(), 3u);
    EXPECT_EQ(made->configs[0].name, "b");
    EXPECT_EQ(made->configs[1].name, "a");
    EXPECT_EQ(made->configs[2].name, "d");
}

TEST_F(StanzaConfigurationTest, WhatAStanzaLeavesOutHasItsDefault)
{
    stanza("WinRegMon://x", {{"index", ""}, {"baseline", "maybe"}, {"baseline_interval", ""}});
    const auto made = group();
    const SystemMonitoringConfig &config = made->configs[0];
    EXPECT_EQ(config.index, "main");
    EXPECT_EQ(config.baselineInterval, "86400");
    EXPECT_FALSE(config.baseline);
    EXPECT_EQ(config.types, (StrVector{"rename", "set", "delete", "create"}));
    EXPECT_TRUE(passes(*made, "\\registry\\machine\\a", "delete", "c:\\x.exe"));
    EXPECT_FALSE(passes(*made, "\\registry\\machine\\a", "open"));
}

TEST_F(StanzaConfigurationTest, APlainPathAdmitsOneComponentMore)
{
    stanza("WinRegMon://x", {{"hive", "HKLM\\\\Soft"}});
    const auto made = group();
    EXPECT_EQ(made->configs[0].hive.pattern(), "\\\\registry\\\\machine\\\\soft\\\\?([^\\\\\r\n]+){0,1}");
    EXPECT_TRUE(passes(*made, "\\registry\\machine\\soft"));
    EXPECT_TRUE(passes(*made, "\\registry\\machine\\soft\\value"));
    // The backslash of the suffix is optional, so a sibling whose name goes on counts as well.
    EXPECT_TRUE(passes(*made, "\\registry\\machine\\software"));
    EXPECT_FALSE(passes(*made, "\\registry\\machine\\soft\\key\\value"));
}

TEST_F(StanzaConfigurationTest, APatternIsTakenAsItIsAndFoldedWithItsEscapes)
{
    stanza("WinRegMon://x", {{"hive", "HKLM\\\\Soft\\S+"}, {"index", "other"}});
    const auto made = group();
    EXPECT_EQ(made->configs[0].hive.pattern(), "\\\\registry\\\\machine\\\\soft\\s+");
    EXPECT_EQ(made->configs[0].index, "other");
    EXPECT_TRUE(passes(*made, "\\registry\\machine\\soft \t"));
    EXPECT_FALSE(passes(*made, "\\registry\\machine\\softx"));
}

TEST_F(StanzaConfigurationTest, AnExclusiveGroupDropsWhatMatches)
{
    stanza("WinRegMon://x", {{"hive", "HKLM\\\\a\\\\.*"}});
    const auto made = group(false);
    EXPECT_FALSE(passes(*made, "\\registry\\machine\\a\\b"));
    EXPECT_TRUE(passes(*made, "\\registry\\machine\\b"));
}

TEST_F(StanzaConfigurationTest, ADriveInAProcessPatternMeetsDevicePaths)
{
    const Str device = translateProcessDrive("C:");
    ASSERT_TRUE(device.startsWith("\\\\device\\\\"));
    stanza("WinRegMon://x", {{"proc", "C:\\\\Windows\\\\.*"}});
    Str process = device;
    process.replaceAll("\\\\", "\\");
    const auto made = group();
    EXPECT_TRUE(passes(*made, "k", "set", Str::concat(process, "\\windows\\reg.exe").c_str()));
    EXPECT_FALSE(passes(*made, "k", "set", Str::concat(process, "\\other\\reg.exe").c_str()));
    EXPECT_EQ(made->configs[0].proc.pattern(), "c:\\\\windows\\\\.*");
    EXPECT_EQ(deviceToDrive(Str::concat(process.uppered(), "\\X")), "c:\\X");
}

TEST_F(StanzaConfigurationTest, ABadPatternFailsAll)
{
    stanza("WinRegMon://a").stanza("WinRegMon://z", {{"hive", "("}});
    EXPECT_THROW(group(), RegexException);
}

TEST_F(StanzaConfigurationTest, TheDriversMasksFollowTheStanzas)
{
    stanza("WinRegMon://a", {{"type", "set"}, {"hive", "HKLM\\\\.*"}});
    EXPECT_EQ(block().ops, 4u);
    EXPECT_EQ(block().hives, 2u);
    EXPECT_EQ(block().events, 7u);
    EXPECT_EQ(block().status, 0x17u);
    stanza("WinRegMon://b", {{"type", "create|delete"}, {"hive", "HKCU\\\\x"}});
    stanza("WinRegMon://c", {{"type", "open"}, {"hive", "HKEY_USERS\\\\.*"}});
    EXPECT_EQ(block().ops, 29u);
    EXPECT_EQ(block().hives, 3u);
    // The types are not folded for the driver.
    stanzas_.clear();
    stanza("WinRegMon://a", {{"type", "SET"}, {"hive", "(\\\\registry\\\\user|nothing)"}});
    EXPECT_EQ(block().ops, 0u);
    EXPECT_EQ(block().hives, 1u);
}

TEST_F(StanzaConfigurationTest, AnUnknownHiveWatchesBoth)
{
    stanza("WinRegMon://a", {{"hive", "hklm\\\\x"}}).stanza("WinRegMon://b", {{"hive", "elsewhere"}});
    stanza("WinRegMon://c", {{"hive", "HKLM\\\\x"}});
    EXPECT_EQ(block().hives, 3u);
}

TEST_F(StanzaConfigurationTest, APieceOfATypeThatIsNoPatternByItselfThrows)
{
    stanza("WinRegMon://a", {{"type", "(set|delete)"}});
    EXPECT_NE(group(), nullptr);
    EXPECT_THROW(block(), RegexException);
}

TEST_F(StanzaConfigurationTest, TheLongestHivePatternNamesStanzaAndIndex)
{
    stanza("WinRegMon://a", {{"hive", "HKLM\\\\Software\\\\.*"}, {"index", "long"}});
    stanza("WinRegMon://b", {{"hive", "HKLM\\\\.*"}, {"index", "short"}});
    stanza("WinRegMon://c", {{"hive", "HKLM\\\\Softwar.\\\\.*"}, {"index", "as long"}}); // the first counts
    MonitorRules rules;
    Str found = "none";
    EXPECT_EQ(rules.getIndexAndStanzaForRegmon("\\REGISTRY\\MACHINE\\x", found), "");
    EXPECT_EQ(found, "none");
    EXPECT_EQ(rules.group(kRegmonFilters), nullptr);
    MonitorRules filled;
    ASSERT_TRUE(filled.insert(kRegmonFilters, group()));
    EXPECT_FALSE(filled.insert(kRegmonFilters, group()));
    EXPECT_EQ(filled.getIndexAndStanzaForRegmon("\\REGISTRY\\MACHINE\\Software\\X", found), "long");
    EXPECT_EQ(found, "a");
    EXPECT_EQ(filled.getIndexAndStanzaForRegmon("\\REGISTRY\\MACHINE\\Other", found), "short");
    EXPECT_EQ(found, "b");
    EXPECT_EQ(filled.getIndexAndStanzaForRegmon("\\REGISTRY\\USER\\x", found), "");
    EXPECT_EQ(found, "b");
}

TEST_F(StanzaConfigurationTest, TheLastMatchingStanzaNamesAProcess)
{
    stanza("WinRegMon://a", {{"proc", "reg"}}).stanza("WinRegMon://b", {{"proc", "reg.exe"}, {"index", "b"}});
    stanza("WinRegMon://c", {{"proc", "cmd"}});
    MonitorRules rules;
    ASSERT_TRUE(rules.insert(kProcmonFilters, group()));
    Str found;
    EXPECT_EQ(rules.getIndexAndStanzaForProcmon("C:\\REG.EXE", found), "b");
    EXPECT_EQ(found, "b");
}

} // namespace
} // namespace velmox
