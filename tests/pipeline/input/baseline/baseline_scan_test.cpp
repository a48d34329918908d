#include "pipeline/input/baseline/baseline_scan.h"
#include "tests/pipeline/input/registry/registry_test_key.h"
#include "tests/pipeline/input/rules/stanzas.h"
#include "tests/support/captured_log.h"
#include "tests/support/failing_call.h"
#include "tests/support/file_tree.h"
#include "tests/support/log_lines.h"
#include "tests/support/scoped_folder.h"
#include "util/files/file_star.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::FailingCall;
using testing::FileTree;

/// Baselines of a key with one value and a sub key with another, each a start of its own.
class BaselineScanTest : public ::testing::Test
{
protected:
    BaselineScanTest()
    {
        key_.setNumber(u"", u"v", 7);
        key_.setNumber(u"Sub", u"w", 1);
        Str pattern = Str::fromFormat("HKCU\\%s\\.*", Str::fromUtf16(key_.path()).c_str());
        pattern.replaceAll("\\", "\\\\");
        set_.add("WinRegMon://off", {{"hive", ".*"}})
            .add("WinRegMon://x", {{"hive", pattern}, {"baseline", "1"}});
        rules_.insert(kRegmonFilters, set_.group());
        pattern_ = rules_.group(kRegmonFilters)->configs[1].hive.pattern();
    }

    bool establish(MonitorRules &rules)
    {
        bodies_.clear();
        const FileStar out = FileStar::tempFile();
        EventEmitter emitter([this](const Str &text) { written(text); }, out.get());
        const StopFlag stop;
        BaselineCheckPoint checkpoint;
        checkpoint.setDirectory(folder_.path().concat("\\"));
        return BaselineScan(rules, set_.hives, checkpoint, emitter, stop).establishBaseline();
    }
    void written(const Str &text)
    {
        if (refusesEvents_) {
            throw std::runtime_error("no more events");
        }
        bodies_.push_back(text);
    }

    /// With the folder of the checkpoints and the path of the key put in.
    Str filled(Str text) const
    {
        text.replaceAll("FOLDER", folder_.path().toStr());
        text.replaceAll("ROOT", "\\REGISTRY\\USER\\S-1-5-21-7");
        text.replaceAll("REST", Str::concat("\\", Str::fromUtf16(key_.path()).uppered()));
        return text;
    }
    Str errors(const std::string &lines, DWORD error = 0) const
    {
        return filled(testing::logLines("ERROR velmox-regmon: ", lines, error));
    }

    const RegistryTestKey key_;
    const testing::ScopedFolder folder_;
    testing::StanzaSet set_;
    MonitorRules rules_;
    Str pattern_;
    StrVector bodies_;
    bool refusesEvents_ = false;
};

TEST_F(BaselineScanTest, AFailureCostsItsPartAndALine)
{
    const std::string kSet = "BaselineCheckPoint::setCheckpoint: Unable to ";
    const std::string kEstablish = "WinRegistryMonitor::establishBaseline: Failed to ";
    const std::string kFilter =
        "\nWinRegistryMonitor::processHivePaths: Failed to set checkpoint for Registry Monitor filter 'x'";
    const std::string kWalk =
        kEstablish + "enumerate registry for baselining: hkey='ROOT' start_point='REST': '%m'";
    const struct
    {
        const char *function;
        std::intptr_t result;
        DWORD error;
        int passed;
        std::size_t events;
        const char *files;
        std::string log;
    } rows[] = {
        {"WriteFile", TRUE, 0, 9, 2, "comleted filter_x last_time_run ", ""},
        {"CreateFileW", -1, 5, 2, 2, "comleted last_time_run ",
         kSet + "open checkpoint file='FOLDER\\filter_x' for write: '%m'" + kFilter},
        {"WriteFile", FALSE, ERROR_DISK_FULL, 0, 2, "comleted filter_x last_time_run ",
         kSet + "write to checkpoint file='FOLDER\\filter_x': '%m'" + kFilter},
        {"CreateFileW", -1, 5, 3, 2, "filter_x last_time_run ",
         kSet + "open checkpoint file='FOLDER\\comleted' for write: '%m'\n" + kEstablish +
             "set checkpoint 'completed' for baseline key path='ROOTREST'"},
        {"CreateFileW", -1, 5, 4, 2, "comleted filter_x ",
         kSet + "open checkpoint file='FOLDER\\last_time_run' for write: '%m'\n" + kEstablish +
             "set checkpoint 'last_time_completed' for baseline key path='ROOTREST'"},
        {"RegOpenKeyExW", 5, 5, 0, 0, "filter_x ", kWalk},
        {"RegQueryInfoKeyA", 6, 6, 0, 0, "filter_x ", kWalk},
        {"LocalAlloc", 0, 8, 0, 0, "filter_x ", kWalk},
    };
    const std::string noFilter =
        "BaselineCheckPoint::gotCheckpoint: Unable to open checkpoint file='FOLDER\\filter_x': '%m'";
    for (const auto &row : rows) {
        SCOPED_TRACE(::testing::Message() << row.function << " " << row.passed);
        for (const char *name : {"comleted", "filter_x", "last_time_run"}) {
            DeleteFileW(asWide(folder_ / name));
        }
        const CapturedLog log;
        const FailingCall refused(row.function, row.result, row.error, row.passed);
        EXPECT_TRUE(establish(rules_));
        EXPECT_EQ(bodies_.size(), row.events);
        EXPECT_EQ(log.text(), errors(noFilter, ERROR_FILE_NOT_FOUND).append(errors(row.log, row.error)));
        std::string files;
        for (const auto &[name, bytes] : testing::readTree(folder_.path())) {
            files.append(name.view()).append(" ");
        }
        EXPECT_EQ(files, row.files);
    }
}

TEST_F(BaselineScanTest, ACheckpointSaysWhetherItIsDue)
{
    const testing::ReplacedCall clock(
        "GetSystemTimeAsFileTime", +[](FILETIME *time) {
            *time = {0, 30'800'000};
        });
    const auto ago = [](long long seconds) { return Str::fromFormat("%lld", secondsSinceEpoch() - seconds); };
    const FileTree fresh = {{"filter_x", pattern_}, {"comleted", "1"}, {"last_time_run", ago(0)}};
    const struct
    {
        const char *name; // of the file that is not as after a walk; nothing for none
        Str content;
        std::size_t events;
    } rows[] = {
        {"filter_x", pattern_, 0},
        {"filter_x", Str::concat(pattern_, "\r\nmore"), 0},
        {"filter_x", "x", 2},
        {"filter_x", "\n", 2},
        {"filter_x", "", 2},
        {"comleted", "maybe", 0},
        {"comleted", "0", 2},
        {"comleted", "", 2},
        {"last_time_run", "", 2},
        {"last_time_run", "soon", 2},
        {"last_time_run", ago(86400), 2},
        {"last_time_run", ago(86300), 0},
    };
    const CapturedLog log;
    for (const auto &row : rows) {
        FileTree files = fresh;
        files[row.name] = row.content;
        testing::writeTree(folder_.path(), files);
        if (row.content.empty()) {
            DeleteFileW(asWide(folder_ / row.name));
        }
        EXPECT_TRUE(establish(rules_));
        EXPECT_EQ(bodies_.size(), row.events) << &row - rows;
        const Str &filter = files["filter_x"];
        EXPECT_EQ(testing::readWhole(folder_ / "filter_x"),
                  filter.empty() || filter == "\n" ? pattern_ : filter);
    }
}

TEST_F(BaselineScanTest, FailsAsAWholeWithoutRulesOrMemoryOrAPlaceForItsEvents)
{
    const CapturedLog log;
    MonitorRules none;
    EXPECT_FALSE(establish(none));
    // Of the allocations that may fail, one is that of the list.
    bool isDone = true;
    for (int passed = 0; passed < 1000 && !log.text().contains("Failed to create RegexFilterList object");
         ++passed) {
        DeleteFileW(asWide(folder_ / "comleted"));
        const FailingCall exhausted("malloc", 0, ERROR_NOT_ENOUGH_MEMORY, passed);
        try {
            isDone = establish(rules_);
        } catch (const std::bad_alloc &) {
        }
    }
    EXPECT_FALSE(isDone);
    refusesEvents_ = true;
    EXPECT_FALSE(establish(rules_));
    EXPECT_TRUE(log.text().contains(
        "INFO velmox-regmon: WinRegistryMonitor::processHivePaths: regmon-filters has been "
        "turned off, or no configuration file was found\n"
        "ERROR velmox-regmon: WinRegistryMonitor::establishBaseline: Failed to process "
        "filter hive paths\n"));
    EXPECT_TRUE(log.text().endsWith("establishBaseline: Failed to establish baseline: 'no more events'\n"));
    EXPECT_EQ(testing::readWhole(folder_ / "comleted"), "<unreadable>");
}

} // namespace
} // namespace velmox
