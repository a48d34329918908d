#include "pipeline/input/program/sysmon_migrator.h"
#include "tests/support/captured_log.h"
#include "tests/support/child_test.h"
#include "tests/support/failing_call.h"
#include "tests/support/file_tree.h"
#include "tests/support/scoped_folder.h"
#include "util/process/loader_info.h"
#include "util/system/environment.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::FailingCall;
using testing::FileTree;

constexpr char kFilters[] = "apps\\a\\local\\regmon-filters.conf";
constexpr char kSysmon[] = "system\\local\\sysmon.conf";

// In a process of its own, whose store stands in one place from the first use on.
TEST(SysmonMigrator, DISABLED_AFileThatCannotBeReplacedStopsItBeforeTheMark)
{
    const testing::ScopedFolder home;
    setEnvironmentVariable(u"VELMOX_HOME", home.path());
    LoaderInfo::instance()->readEnvironment();
    FileTree files = {{"system\\default\\conf.conf", testing::readWhole(Pathname::fromUtf8(
                                                         VELMOX_SHIPPED_ETC "/system/default/conf.conf"))},
                      {kSysmon, "[default]\n[regmon]\nfilter_file_name = regmon-filters\ndisabled = 1\n"},
                      {kFilters, "[x]\nhive = HKLM\n\n[y]\nhive = HKLM\n"},
                      {"apps\\a\\local\\old.conf", "[x]\nhive = HKLM\nindex = default\n[y]\nindex = mine\n"}};
    testing::writeTree(home / "etc", files);
    const auto expectFiles = [&] {
        FileTree actual = testing::readTree(home / "etc");
        std::erase_if(actual, [](const auto &file) { return file.first.endsWith(".tmp"); });
        testing::expectTree(actual, files);
    };
    const CapturedLog log;
    {
        const FailingCall refused("MoveFileExW", FALSE, ERROR_DISK_FULL, 1, 9);
        EXPECT_THROW(SysmonMigrator().migrate(), BaseException);
    }
    files[kFilters] = "[x]\nhive = HKLM\ndisabled = 1\n\n[y]\nhive = HKLM\n";
    expectFiles();
    EXPECT_FALSE(log.text().contains("have been successfully migrated!"));

    // An index of a stanza's own stays.
    SysmonMigrator().migrateNonRegmonProcmonFilters("old", "1", "main", false);
    files["apps\\a\\local\\procmon-filters.conf"] =
        "\xEF\xBB\xBF\r\n[x]\r\ndisabled = 1\r\nhive = HKLM\r\n"
        "index = main\r\n\r\n[y]\r\ndisabled = 1\r\nindex = mine\r\n";
    files["apps\\a\\metadata\\local.meta"] =
        "[procmon-filters/x]\r\nowner = nobody\r\n\r\n[procmon-filters/y]\r\nowner = nobody\r\n";
    expectFiles();
    EXPECT_TRUE(log.text().contains(
        "migrateNonRegmonProcmonFilters - 'sysmon.conf' - migrating the index - 'main'."));
}

TEST(SysmonMigrator, AFileThatCannotBeReplacedStopsItBeforeTheMark)
{
    EXPECT_TRUE(
        testing::ChildTest("SysmonMigrator.DISABLED_AFileThatCannotBeReplacedStopsItBeforeTheMark", {})
            .succeeds());
}

} // namespace
} // namespace velmox
