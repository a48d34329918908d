#include "pipeline/input/program/sysmon_migrator.h"
#include "util/process/loader_info.h"
#include "util/system/environment.h"

namespace velmox {
namespace {

// In a process of its own, whose store stands in one place from the first use on. The program does not call
// it.
TEST(SysmonMigrator, DISABLED_CarriesFiltersOfOtherFilesOver)
{
    const testing::ScopedFolder home;
    setEnvironmentVariable(u"VELMOX_HOME", home.path());
    LoaderInfo::instance()->readEnvironment();
    testing::writeTree(
        home / "etc",
        {{"system\\default\\conf.conf",
          testing::readWhole(Pathname::fromUtf8(VELMOX_SHIPPED_ETC "/system/default/conf.conf"))},
         {"apps\\a\\local\\old.conf", "[x]\nhive = HKLM\nindex = default\n[y]\nindex = mine\n"}});
    SysmonMigrator().migrateNonRegmonProcmonFilters("old", "1", "main", false);
    EXPECT_EQ(testing::readWhole(home / "etc\\apps\\a\\local\\procmon-filters.conf"),
              "\xEF\xBB\xBF\r\n[x]\r\ndisabled = 1\r\nhive = HKLM\r\nindex = main\r\n\r\n"
              "[y]\r\ndisabled = 1\r\nindex = mine\r\n");
}

TEST(SysmonMigrator, CarriesFiltersOfOtherFilesOver)
{
    EXPECT_TRUE(testing::ChildTest("SysmonMigrator.DISABLED_CarriesFiltersOfOtherFilesOver", {}).succeeds());
}

} // namespace
} // namespace velmox
