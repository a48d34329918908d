#include "testbed/driver_control.h"
#include "testbed/driver_service.h"
#include "tests/e2e/monitor_run.h"
#include "util/file_star.h"
#include "util/file_system.h"
#include "util/open_file.h"

#include <gtest/gtest.h>

namespace velmox::e2e {
namespace {

constexpr char kTree[] = "Software\\VelmoxBaseline";
constexpr char kSubTree[] = "Software\\VelmoxBaseline\\Sub";
constexpr char kPattern[] = "HKLM\\\\Software\\\\VelmoxBaseline\\\\.*";
constexpr char kFinalPattern[] = "\\\\registry\\\\machine\\\\software\\\\velmoxbaseline\\\\.*";

// A small tree to take the baseline of, a fresh checkpoint directory, and the driver at hand to tell when a
// start is through: the worker polls only once the baseline is done.
class BaselineTest : public testing::Test
{
protected:
    BaselineTest()
    {
        testbed::startDriverService();
        const DWORD number = 7;
        setValue(kTree, "text", REG_SZ, "a<b", 4);
        setValue(kSubTree, "number", REG_DWORD, &number, sizeof number);
        makeDirs(directory_, true);
        for (const char *name : {"filter_base", "comleted", "last_time_run"}) {
            removeFile(directory_.join(name));
        }
    }
    ~BaselineTest() override
    {
        RegDeleteTreeA(HKEY_LOCAL_MACHINE, kTree);
        testbed::removeDriverService();
    }

    static void setValue(const char *key, const char *name, DWORD type, const void *data, DWORD size)
    {
        ASSERT_EQ(RegSetKeyValueA(HKEY_LOCAL_MACHINE, key, name, type, data, size), ERROR_SUCCESS);
    }

    void writeCheckpoint(const char *name, std::string_view value)
    {
        FileStar file = openFile(directory_.join(name), "wb");
        ASSERT_EQ(file.write(value.data(), value.size()), static_cast<std::ptrdiff_t>(value.size()));
    }

    Str checkpoint(const char *name)
    {
        FileStar file = openFile(directory_.join(name), "rb");
        char text[256];
        const std::ptrdiff_t length = file.isOpen() ? file.read(text, sizeof text) : 0;
        return Str(text, static_cast<std::size_t>(std::max<std::ptrdiff_t>(length, 0)));
    }

    // How many values a start reports.
    int eventsOfAStart(const Params &params = {}, const Str &directory = "C:\\baseline-checkpoints")
    {
        Params all = {{"baseline", "1"}, {"hive", kPattern}};
        all.insert(all.end(), params.begin(), params.end());
        if (!testbed::TestDriver::isPresent()) {
            testbed::startDriverService();
        }
        // A closed gate keeps everything but the polling away.
        testbed::TestDriver driver;
        driver.reset();
        MonitorRun run(InputDocument().checkpointDir(directory).stanza("WinRegMon://base", all).text());
        EXPECT_TRUE(driver.waitFor([](const VelmoxTestState &state) { return state.reads > 0; },
                                   std::chrono::seconds(30)))
            << run.log().c_str();
        EXPECT_EQ(run.stop(), 0u);
        output_ = run.output();
        log_ = run.log();
        int events = 0;
        for (std::size_t at = output_.find("<event"); at != Str::npos; at = output_.find("<event", at + 1)) {
            ++events;
        }
        return events;
    }

    const Pathname directory_ = Pathname::fromUtf8("C:\\baseline-checkpoints");
    Str output_;
    Str log_;
};

TEST_F(BaselineTest, TheFirstStartReportsEveryValueAndRemembersIt)
{
    EXPECT_EQ(eventsOfAStart(), 2);
    const char *lines[] = {
        "registry_type=&quot;baseline&quot;\r\n"
        "key_path=&quot;\\REGISTRY\\MACHINE\\SOFTWARE\\VELMOXBASELINE\\text&quot;\r\n"
        "data_type=&quot;REG_SZ&quot;\r\ndata=&quot;a&lt;b&quot;</data>\r\n",
        "key_path=&quot;\\REGISTRY\\MACHINE\\SOFTWARE\\VELMOXBASELINE\\Sub\\number&quot;\r\n"
        "data_type=&quot;REG_DWORD&quot;\r\ndata=&quot;0x00000007(7)&quot;</data>\r\n",
        "<event stanza=\"base\">\r\n",
        "<index>default</index>\r\n",
        "</stream>\r\n",
    };
    for (const char *line : lines) {
        EXPECT_TRUE(output_.contains(line)) << line << output_.c_str();
    }
    EXPECT_EQ(checkpoint("filter_base"), kFinalPattern);
    EXPECT_EQ(checkpoint("comleted"), "1");
    EXPECT_GT(checkpoint("last_time_run").toInt64(0), 1500000000);
}

TEST_F(BaselineTest, ARestartRepeatsItOnlyWhenItIsDue)
{
    ASSERT_EQ(eventsOfAStart(), 2);
    EXPECT_EQ(eventsOfAStart(), 0);
    EXPECT_EQ(eventsOfAStart({{"baseline_interval", "0"}}), 2);
    EXPECT_EQ(eventsOfAStart({{"baseline_interval", "soon"}}), 2);
    writeCheckpoint("last_time_run", "1000");
    EXPECT_EQ(eventsOfAStart(), 2);
    writeCheckpoint("last_time_run", "no number");
    EXPECT_EQ(eventsOfAStart(), 2);
    writeCheckpoint("comleted", "0");
    EXPECT_EQ(eventsOfAStart(), 2);
    writeCheckpoint("comleted", "maybe");
    EXPECT_EQ(eventsOfAStart(), 0);
    removeFile(directory_.join("last_time_run"));
    EXPECT_EQ(eventsOfAStart(), 2);
}

TEST_F(BaselineTest, AChangedPatternIsWalkedAtEveryStart)
{
    ASSERT_EQ(eventsOfAStart(), 2);
    const Params changed = {{"hive", "HKLM\\\\Software\\\\VelmoxBaseline\\\\Sub\\\\.*"}};
    EXPECT_EQ(eventsOfAStart(changed), 1);
    EXPECT_EQ(eventsOfAStart(changed), 1);
    EXPECT_EQ(checkpoint("filter_base"), kFinalPattern);
    EXPECT_EQ(eventsOfAStart(), 0);
}

TEST_F(BaselineTest, FailuresAreLoggedAndCostNoMoreThanTheirPart)
{
    EXPECT_EQ(eventsOfAStart({}, "C:\\no-such-directory"), 2);
    EXPECT_TRUE(log_.contains("BaselineCheckPoint::gotCheckpoint: Unable to open checkpoint file="
                              "'C:\\no-such-directory\\filter_base': '"));
    EXPECT_TRUE(log_.contains("Failed to set checkpoint for Registry Monitor filter 'base'"));
    EXPECT_TRUE(log_.contains("Failed to set checkpoint 'last_time_completed' for baseline key path="
                              "'\\REGISTRY\\MACHINE\\SOFTWARE\\VELMOXBASELINE'"));
    EXPECT_EQ(eventsOfAStart({{"hive", "HKLM\\\\Software\\\\VelmoxNowhere\\\\.*"}}), 0);
    EXPECT_TRUE(log_.contains("Failed to enumerate registry for baselining: hkey='\\REGISTRY\\MACHINE' "
                              "start_point='\\SOFTWARE\\VELMOXNOWHERE': '"));
}

} // namespace
} // namespace velmox::e2e
