#include "tests/e2e/monitor_test.h"

#include <chrono>
#include <thread>

namespace velmox::e2e {

namespace {

using testbed::Bytes;
using testbed::RecordFields;
using testbed::TestDriver;

constexpr std::uint32_t kStatusDeviceNotReady = 0xC00000A3; // error 21

/// The driver that stays; the tests below that need it to come and go have their own class.
class DriverChannelTest : public MonitorTest
{
};

class DriverServiceTest : public testing::Test
{
protected:
    void TearDown() override
    {
        testbed::removeDriverService();
        testbed::placeDriverFile();
    }
};

/// Whether a monitor has come to read from the driver, which it may first have to install.
bool waitUntilReading()
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!TestDriver::isPresent() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return TestDriver::isPresent() &&
           TestDriver().waitFor([](const VelmoxTestState &state) { return state.reads != 0; });
}

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
    std::vector<ExpectedEvent> expected;
    for (const Case &one : cases) {
        expected.push_back(*one.event);
    }
    EXPECT_EQ(run.output(), expectedStream(expected));
    expectLogged(run.log(), "WinRegistryMonitor::MonitorWorker: Monitor Worker Exiting...");
}

TEST_F(DriverChannelTest, TriesAFailedReadAgain)
{
    driver.failReads(kStatusDeviceNotReady, 2);
    driver.passReads(1);
    driver.failReads(kStatusDeviceNotReady);
    check(everything(), {sized(5000), sized(5001)});
    EXPECT_EQ(driver.state().readsFaulted, 3u);
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

TEST_F(DriverChannelTest, LeavesADriverOfTheSystemLocationAlone)
{
    const Str log = check(everything(), {sized(200)});
    expectLogged(log, "Do not uninstall driver in system location");
    EXPECT_TRUE(TestDriver::isPresent());
}

TEST_F(DriverChannelTest, StopsSoonWhenNothingHappens)
{
    MonitorRun run(everything().text());
    ASSERT_TRUE(driver.waitFor([](const VelmoxTestState &state) { return state.readsEmpty != 0; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(run.output(), "");
}

TEST_F(DriverServiceTest, InstallsTheDriverWhenItIsMissingAndRemovesItAtTheEnd)
{
    testbed::placeDriverFile();
    MonitorRun run(everything().text());
    ASSERT_TRUE(waitUntilReading()) << run.log().c_str();
    EXPECT_TRUE(testbed::isDriverServiceInstalled());
    const Case one = sized(300);
    TestDriver().push(testbed::recordBytes(one.record));
    ASSERT_TRUE(run.waitForEvents(1));
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(run.output(), expectedStream({*one.event}));
    EXPECT_FALSE(testbed::isDriverServiceInstalled());
    EXPECT_FALSE(TestDriver::isPresent());
}

TEST_F(DriverServiceTest, RemovesAtTheEndWhatItFoundRunning)
{
    testbed::startDriverService();
    MonitorRun run(everything().text());
    ASSERT_TRUE(waitUntilReading()) << run.log().c_str();
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_FALSE(testbed::isDriverServiceInstalled());
}

TEST_F(DriverServiceTest, EndsQuietlyWhenTheDriverDoesNotStart)
{
    testbed::removeDriverFile();
    MonitorRun run(everything().text());
    EXPECT_EQ(run.waitForEnd(), 0u);
    EXPECT_EQ(run.output(), "");
    expectLogged(run.log(), "startDriver - StartService failure for velmoxdrv-win6! Error = ");
    expectLogged(run.log(), "WinRegistryMonitor::StartDriver: Unable to install driver.");
    EXPECT_FALSE(testbed::isDriverServiceInstalled());
}

} // namespace

} // namespace velmox::e2e
