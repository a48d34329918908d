#include "tests/e2e/monitor_test.h"

namespace velmox::e2e {

namespace {

using testbed::RecordFields;
using testbed::TestDriver;

constexpr std::uint32_t kStatusDeviceNotReady = 0xC00000A3; // error 21

/// The driver that stays; the tests below that need it to come and go have their own class.
class DriverChannelTest : public MonitorTest
{
};

/// A reported text value so that the whole record has the size.
Case sized(std::size_t size)
{
    RecordFields record = {.pid = kUnknownPid};
    const std::size_t rest = size - testbed::recordBytes(record).size();
    record.data = testbed::textData(std::u16string(rest / 2, u'v'));
    record.data.resize(rest);
    ExpectedBody body = bodyOf(record);
    body.dataType = "REG_SZ";
    body.data = std::string(rest / 2, 'v').c_str();
    return {record, ExpectedEvent{.body = body.text()}};
}

TEST_F(DriverChannelTest, GrowsTheBufferUntilTheRecordFitsAndEndsInOrderBeyondTheCeiling)
{
    const std::vector<Case> cases = {sized(1000),   sized(8192),   sized(8193),
                                     sized(20'001), sized(65'536), sized(500)};
    push(cases);
    MonitorRun run(everything().text());
    ASSERT_TRUE(run.waitForEvents(cases.size()));
    // From 8192 bytes by steps of 4096.
    EXPECT_EQ(driver.state().readsTooSmall, 14u);

    push({sized(65'537)});
    EXPECT_EQ(run.waitForEnd(), 0u);
    EXPECT_EQ(driver.state().readsTooSmall, 15u);
    EXPECT_EQ(run.output(), expectedStream(eventsOf(cases)));
    expectLogged(run.log(), "WinRegistryMonitor::MonitorWorker: Monitor Worker Exiting...");
}

TEST_F(DriverChannelTest, EndsQuietlyWhenTheDriverRefusesTheFilter)
{
    driver.failSetFilter(kStatusDeviceNotReady);
    MonitorRun run(everything().text());
    EXPECT_EQ(run.waitForEnd(), 0u);
    EXPECT_EQ(run.output(), "");
    Str refused = "WinRegistryMonitor::setRegEvtTypesToMonitor: Unable to set driver configuration: '(21)";
    refused.appendErrorText(ERROR_NOT_READY);
    expectLogged(run.log(), refused.append("'"));
    expectLogged(run.log(),
                 "WinRegistryMonitor::init: Failed to set event type class configuration to monitor");
}

TEST_F(DriverChannelTest, StopsWhenNothingHappensAndLeavesADriverOfTheSystemLocationAlone)
{
    MonitorRun run(everything().text());
    ASSERT_TRUE(driver.waitFor([](const VelmoxTestState &state) { return state.readsEmpty != 0; }));
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(run.output(), "");
    expectLogged(run.log(), "Do not uninstall driver in system location");
    EXPECT_TRUE(TestDriver::isPresent());
}

class DriverServiceTest : public ::testing::Test
{
protected:
    void SetUp() override { testbed::placeDriverFile(); }
    void TearDown() override
    {
        testbed::removeDriverService();
        // A driver that was killed has left its name behind, which the next one takes over and removes.
        testbed::startDriverService();
        testbed::removeDriverService();
    }

    /// Waits until the monitor reads from the driver, which it may first have to install, and has reported
    /// one record.
    static void expectReporting(MonitorRun &run)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!TestDriver::isPresent() && std::chrono::steady_clock::now() < deadline) {
            Sleep(10);
        }
        TestDriver().pushUnfiltered(testbed::recordBytes(sized(300).record));
        EXPECT_TRUE(run.waitForEvents(1)) << run.log().c_str();
    }

    /// Ends the run, in which one record was reported.
    static void expectOrderlyEnd(MonitorRun &run)
    {
        EXPECT_EQ(run.stop(), 0u);
        EXPECT_EQ(run.output(), expectedStream({*sized(300).event}));
        EXPECT_FALSE(testbed::isDriverServiceInstalled());
        EXPECT_FALSE(TestDriver::isPresent());
    }
};

TEST_F(DriverServiceTest, IsRemovedAtTheEndWhetherTheMonitorInstalledItOrNot)
{
    for (const bool isRunning : {false, true}) {
        if (isRunning) {
            testbed::startDriverService();
        }
        MonitorRun run(everything().text());
        expectReporting(run);
        EXPECT_TRUE(testbed::isDriverServiceInstalled());
        expectOrderlyEnd(run);
    }
}

TEST_F(DriverServiceTest, MayGoWhileTheMonitorReads)
{
    for (const bool isKilled : {false, true}) {
        MonitorRun run(everything().text());
        expectReporting(run);
        if (isKilled) {
            const KernelHandle host(OpenProcess(PROCESS_TERMINATE, FALSE, TestDriver().state().hostPid));
            ASSERT_TRUE(TerminateProcess(host.get(), 1));
        } else {
            testbed::stopDriverService();
        }
        EXPECT_FALSE(TestDriver::isPresent());
        expectOrderlyEnd(run);
        expectLogged(run.log(), "stopDriver - Service 'velmoxdrv-win6' could not be stopped!  Error = ");
    }
}

TEST_F(DriverServiceTest, ThatCannotBeStartedEndsTheMonitorQuietlyAndIsRemoved)
{
    for (const bool isDisabled : {true, false}) {
        testbed::ServiceHandle service = testbed::openDriverService();
        if (isDisabled) {
            EXPECT_TRUE(ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_DISABLED,
                                             SERVICE_NO_CHANGE, nullptr, nullptr, nullptr, nullptr, nullptr,
                                             nullptr, nullptr));
        } else {
            EXPECT_TRUE(DeleteService(service.get())); // once its last handle is closed
        }
        MonitorRun run(everything().text());
        EXPECT_EQ(run.waitForEnd(), 0u);
        EXPECT_EQ(run.output(), "");
        expectLogged(run.log(), isDisabled
                                    ? "startDriver - StartService failure for velmoxdrv-win6! Error = 1058"
                                    : "installDriver CreateService failed! Error = 1072");
        expectLogged(run.log(), "WinRegistryMonitor::StartDriver: Unable to install driver.");
        service.reset();
        EXPECT_FALSE(testbed::isDriverServiceInstalled());
    }
}

} // namespace

} // namespace velmox::e2e
