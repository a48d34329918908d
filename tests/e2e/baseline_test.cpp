#include "tests/e2e/monitor_test.h"

namespace velmox::e2e {
namespace {

constexpr char kTree[] = "Software\\VelmoxBaseline";
constexpr char kSubTree[] = "Software\\VelmoxBaseline\\Sub";
constexpr char kPattern[] = "HKLM\\\\Software\\\\VelmoxBaseline\\\\.*";
constexpr char kFinalPattern[] = "\\\\registry\\\\machine\\\\software\\\\velmoxbaseline\\\\.*";

/// A tree of two values to take the baseline of, and a fresh checkpoint directory.
class BaselineTest : public MonitorTest
{
protected:
    BaselineTest()
    {
        const DWORD number = 7;
        setValue(kTree, "text", REG_SZ, "a<b", 4);
        setValue(kSubTree, "number", REG_DWORD, &number, sizeof number);
    }
    ~BaselineTest() override { RegDeleteTreeA(HKEY_LOCAL_MACHINE, kTree); }

    static void setValue(const char *key, const char *name, DWORD type, const void *data, DWORD size)
    {
        ASSERT_EQ(RegSetKeyValueA(HKEY_LOCAL_MACHINE, key, name, type, data, size), ERROR_SUCCESS);
    }

    Str checkpoint(const char *name) { return velmox::testing::readWhole(directory_ / name); }

    /// How many values a start reports. The worker polls only once the baseline is done.
    std::size_t eventsOfAStart(const Params &params = {}, const Str &directory = {})
    {
        Params all = {{"baseline", "1"}, {"hive", kPattern}};
        all.insert(all.end(), params.begin(), params.end());
        driver.reset();
        MonitorRun run(InputDocument()
                           .checkpointDir(directory.empty() ? directory_.path().toStr() : directory)
                           .stanza("WinRegMon://base", all)
                           .text());
        EXPECT_TRUE(waitUntilPolled()) << run.log().c_str();
        EXPECT_EQ(run.stop(), 0u);
        output_ = run.output();
        log_ = run.log();
        return occurrences(output_, "<event");
    }

    const velmox::testing::ScopedFolder directory_;
    Str output_;
    Str log_;
};

TEST_F(BaselineTest, TheFirstStartReportsEveryValueAndRemembersIt)
{
    EXPECT_EQ(eventsOfAStart(), 2u);
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

TEST_F(BaselineTest, ARestartWithinTheIntervalRepeatsNothing)
{
    EXPECT_EQ(eventsOfAStart(), 2u);
    EXPECT_EQ(eventsOfAStart(), 0u);
    EXPECT_EQ(eventsOfAStart({{"baseline_interval", "0"}}), 2u);
    EXPECT_EQ(checkpoint("filter_base"), kFinalPattern);
    // Without a place for its files it recurs, and each start says so.
    EXPECT_EQ(eventsOfAStart({}, "C:\\no-such-directory"), 2u);
    expectLogged(log_, "WinRegistryMonitor::MonitorWorker: Failed to set checkpoint 'last_time_run'");
}

} // namespace
} // namespace velmox::e2e
