#include "pipeline/input/command_line.h"

#include <gtest/gtest.h>
#include <initializer_list>
#include <vector>

namespace velmox {
namespace {

bool scan(std::initializer_list<const wchar_t *> arguments, CommandLine &out)
{
    std::vector<const wchar_t *> all{L"velmox-regmon.exe"};
    all.insert(all.end(), arguments);
    all.push_back(nullptr);
    out = CommandLine();
    return scanCommandLine(all.data(), out);
}

TEST(CommandLine, DefaultsStandWithoutArgumentsAndWithUnknownOnes)
{
    CommandLine options;
    EXPECT_TRUE(scan({L"--path-driver", L"C:\\x", L"-INDEX", L"y"}, options));
    EXPECT_EQ(options.index, "");
    EXPECT_TRUE(options.inclusive);
    EXPECT_TRUE(options.migrateSysmon);
    EXPECT_FALSE(options.migrateOnly);
    EXPECT_FALSE(options.runUntilPidDies || options.dieWhenPidDies);
}

TEST(CommandLine, AMissingOrBadValueIsRefused)
{
    CommandLine options;
    EXPECT_FALSE(scan({L"-run-until-pid-dies"}, options));
    EXPECT_FALSE(scan({L"-run-until-pid-dies", L"abc"}, options));
    EXPECT_FALSE(scan({L"-die-when-pid-dies", L""}, options));
    EXPECT_FALSE(scan({L"-index"}, options));
    EXPECT_FALSE(scan({L"-inclusive"}, options));
}

TEST(CommandLine, TheWatchOptionsExcludeEachOtherByOrder)
{
    CommandLine options;
    EXPECT_TRUE(scan({L"-die-when-pid-dies", L"5", L"-run-until-pid-dies", L"6"}, options));
    EXPECT_TRUE(options.dieWhenPidDies);
    EXPECT_FALSE(options.runUntilPidDies);
    EXPECT_EQ(options.parentPid, 5u);
    EXPECT_TRUE(scan({L"-run-until-pid-dies", L"6", L"-die-when-pid-dies", L"5"}, options));
    EXPECT_FALSE(options.dieWhenPidDies);
    EXPECT_EQ(options.parentPid, 6u);
    EXPECT_TRUE(scan({L"-run-until-pid-dies", L"12ab", L"-run-until-pid-dies", L"7"}, options));
    EXPECT_EQ(options.parentPid, 7u);
    EXPECT_TRUE(scan({L"-run-until-pid-dies", L"12ab"}, options));
    EXPECT_EQ(options.parentPid, 12u);
}

TEST(CommandLine, AValueStaysTheTokenForTheTestsBehindItsOwn)
{
    CommandLine options;
    EXPECT_TRUE(scan({L"-index", L"-migrateOnly"}, options));
    EXPECT_EQ(options.index, "-migrateOnly");
    EXPECT_TRUE(options.migrateOnly);
    EXPECT_TRUE(scan({L"-index", L"-inclusive", L"0"}, options));
    EXPECT_EQ(options.index, "-inclusive");
    EXPECT_FALSE(options.inclusive);
    EXPECT_TRUE(scan({L"-inclusive", L"-disableSysmonMigrate"}, options));
    EXPECT_FALSE(options.migrateSysmon);
    // Not the other way round: a value never meets the tests before its own.
    EXPECT_TRUE(scan({L"-inclusive", L"-index", L"x"}, options));
    EXPECT_EQ(options.index, "");
}

TEST(CommandLine, OneEnclosingPairOfQuotesGoes)
{
    CommandLine options;
    EXPECT_TRUE(scan({L"-inclusive", L"\"0\"", L"-index", L"\"\"x"}, options));
    EXPECT_FALSE(options.inclusive);
    EXPECT_EQ(options.index, "\"\"x");
    EXPECT_TRUE(scan({L"-inclusive", L"00", L"-index", L"\"main\""}, options));
    EXPECT_TRUE(options.inclusive);
    EXPECT_EQ(options.index, "main");
}

} // namespace
} // namespace velmox
