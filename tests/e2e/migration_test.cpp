#include "tests/e2e/monitor_run.h"

namespace velmox::e2e {
namespace {

// What a conf file made by the store begins with: a byte-order mark and an empty line.
constexpr char kNew[] = "\xEF\xBB\xBF\r\n";
constexpr char kMigratedMark[] = "[default]\r\nmigrated = 1\r\n";

Str shipped(const char *name)
{
    return velmox::testing::readWhole(Pathname::fromUtf8(kHome).join("etc\\system\\default").join(name));
}

Str newFile(std::string_view text)
{
    return Str(kNew).append(text);
}

// An installation of its own with the shipped bootstrap file, in which the program carries old settings over.
class MigrationTest : public ::testing::Test
{
protected:
    MigrationTest() { add({{"system\\default\\conf.conf", shipped("conf.conf")}}); }

    void add(const FileTree &files)
    {
        writeTree(home_.path().join("etc"), files);
        for (const auto &[name, bytes] : files) {
            expected_[name] = bytes;
        }
    }

    // Runs the program to its end; returns the log.
    Str run(const char *arguments, DWORD exitCode, const char *output)
    {
        ChildProcess process(
            installed("velmox-regmon.exe", arguments),
            {Str::fromFormat("VELMOX_HOME=%s", home_.path().toStr().c_str()), "VELMOXD_PROCESSID="},
            Streams::NoInput);
        EXPECT_TRUE(process.waitForEnd());
        EXPECT_EQ(process.exitCode(), exitCode) << process.errorBytes().c_str();
        EXPECT_EQ(process.outputBytes(), output);
        return process.errorBytes();
    }

    // Compares every file of the store with what is expected of it: what was there before, and these.
    void expectChanged(const FileTree &changes)
    {
        for (const auto &[name, bytes] : changes) {
            expected_[name] = bytes;
        }
        velmox::testing::expectTree(readTree(home_.path().join("etc")), expected_);
    }

    Str migrate(const FileTree &changes)
    {
        const Str log = run("-migrateOnly", 0, "sysmon migration complete.");
        expectChanged(changes);
        return log;
    }

    const ScopedFolder home_;

private:
    FileTree expected_;
};

void expectLine(const Str &log, const char *line)
{
    EXPECT_TRUE(log.contains(Str(line).append("\r\n"))) << line << "\nis not in\n" << log.c_str();
}

TEST_F(MigrationTest, NothingToDoWritesNothing)
{
    add({{"system\\default\\regmon-filters.conf", shipped("regmon-filters.conf")},
         {"system\\default\\procmon-filters.conf", shipped("procmon-filters.conf")},
         {"system\\default\\inputs.conf", shipped("inputs.conf")}});
    expectLine(migrate({}), "SysmonMigrator::read - 'sysmon.conf' was not found, no migration is required.");

    // Filters that are disabled, or that no setting concerns; the mark is all that is new.
    add({{"system\\local\\sysmon.conf",
          "[default]\nmigrated = 2\n\n[regmon]\n"
          "filter_file_name = regmon-filters\ndisabled = 1\nindex = Default\n"}});
    migrate({{"system\\local\\sysmon.conf",
              "[default]\nmigrated = 1\n\n[regmon]\n"
              "filter_file_name = regmon-filters\ndisabled = 1\nindex = Default\n"}});
    expectLine(migrate({}),
               "SysmonMigrator::read -'sysmon.conf' - 'migrated' found!!! - no migration will be done.");
}

TEST_F(MigrationTest, SettingsComeToRestInTheAppThatProvidedThem)
{
    add({
        {"system\\default\\inputs.conf", "[default]\nindex = main\n"},
        {"system\\default\\sysmon.conf", "[default]\n[regmon]\nfilter_file_name = regmon-filters\n"
                                         "inclusive = 0\ndisabled = 1\nindex = registry\n"
                                         "[procmon]\nfilter_file_name = procmon-filters\ndisabled = 0\n"},
        {"apps\\watch\\default\\inputs.conf",
         "[script://$VELMOX_HOME\\bin\\scripts\\velmox-regmon.path]\ninterval = 60\n"
         "[script://another]\ninterval = 5\n"},
        {"apps\\watch\\default\\regmon-filters.conf", "[default]\nindex = default\n"
                                                      "[a]\nhive = HKLM\n[b]\nhive = HKU\ndisabled = true\n"
                                                      "[c]\nhive = HKCR\ndisabled = 0\n"},
        {"apps\\other\\local\\regmon-filters.conf", "# of this app\r\n[d]\r\nhive = HKLM\r\n"},
        {"apps\\other\\local\\procmon-filters.conf", "[p]\nproc = .*\n"},
    });
    const Str log = migrate({
        {"system\\local\\sysmon.conf", newFile(kMigratedMark)},
        {"apps\\watch\\local\\inputs.conf",
         newFile("[script://$VELMOX_HOME\\bin\\scripts\\velmox-regmon.path]\r\ninclusive = 0\r\n")},
        {"apps\\watch\\local\\regmon-filters.conf",
         newFile("[a]\r\ndisabled = 1\r\n\r\n[c]\r\ndisabled = 1\r\n\r\n[default]\r\nindex = registry\r\n")},
        {"apps\\other\\local\\regmon-filters.conf",
         "# of this app\r\n[d]\r\nhive = HKLM\r\ndisabled = 1\r\n"},
    });
    expectLine(log,
               "SysmonMigrator::saveToConfFile - Saved the settings in file - regmon-filters, for [default] "
               "during regmon migration.");
    expectLine(log,
               "SysmonMigrator::markAsMigrated - The contents of sysmon have been successfully migrated!, "
               "Adding 'migrated=1' to sysmon.conf.");
    migrate({});
}

TEST_F(MigrationTest, AnUnmarkableFileMigratesAgainAndChangesNothingMore)
{
    add({{"system\\default\\sysmon.conf", "[foo]\ndisabled = 1\n[regmon-filters]\ndisabled = 1\n"},
         {"apps\\a\\local\\regmon-filters.conf", "[x]\nhive = HKLM\n"}});
    for (int run = 0; run < 2; ++run) {
        const Str log =
            migrate({{"apps\\a\\local\\regmon-filters.conf", "[x]\nhive = HKLM\ndisabled = 1\n"}});
        expectLine(
            log, "SysmonMigrator::migrate - Found filters in sysmon.conf, which are not regmon or procmon.");
    }
}

TEST_F(MigrationTest, ALockedFileIsLeftWholeAndEndsTheProgram)
{
    add({{"system\\default\\sysmon.conf",
          "[default]\n[regmon]\nfilter_file_name = regmon-filters\ndisabled = 1\n"},
         {"apps\\a\\local\\regmon-filters.conf", "[x]\nhive = HKLM\n"}});
    const Pathname file = home_.path().join("etc\\apps\\a\\local\\regmon-filters.conf");
    // It can be read and written, but nothing can take its place.
    const FileHandle held(CreateFileW(asWide(file), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(held.isValid());
    const Str log = run("-migrateOnly", 0xFFFFFFFF, "");
    EXPECT_EQ(velmox::testing::readWhole(file), "[x]\nhive = HKLM\n");
    EXPECT_TRUE(log.contains("run_regmon: Fail to run Registry Monitor: "
                             "'Could not flush changes to disk: /nobody/a/regmon-filters/x: "))
        << log.c_str();
}

TEST_F(MigrationTest, TheSwitchAgainstMigrationWins)
{
    add({{"system\\local\\sysmon.conf", "[default]\n"}});
    // Neither migrates nor stops: the monitor starts, and ends as it has no input.
    run("-migrateOnly -disableSysmonMigrate", 0, "");
    expectChanged({});
}

} // namespace
} // namespace velmox::e2e
