#include "tests/e2e/monitor_test.h"

namespace velmox::e2e {

namespace {

using testbed::RecordFields;

/// A running monitor around which things go wrong, and enough records that their events fill any pipe.
class SurroundingsTest : public MonitorTest
{
protected:
    SurroundingsTest()
    {
        RecordFields record = {.pid = kUnknownPid};
        record.data = testbed::stringData(std::u16string(3000, u'v'));
        ExpectedBody body = bodyOf(record);
        body.dataType = "REG_SZ";
        body.data = std::string(3000, 'v').c_str();
        cases_.assign(100, {record, ExpectedEvent{.body = body.text()}});
        push(cases_);
    }

    std::vector<Case> cases_;
};

TEST_F(SurroundingsTest, AReaderThatStallsHoldsUpTheEventsAndNotTheDriver)
{
    MonitorRun run(everything().text(), {.streams = Streams::Unread});
    EXPECT_TRUE(waitUntilDelivered(cases_.size()));
    run.process().readOutput();
    EXPECT_TRUE(run.waitForEvents(cases_.size()));
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(run.output(), expectedStream(eventsOf(cases_)));
}

TEST_F(SurroundingsTest, AServerThatDiesWithItsPipesEndsAMonitorWhoseEventsItHasNotRead)
{
    IdleProcess server;
    MonitorRun run(everything().text(),
                   {.environment = {Str::fromFormat("VELMOXD_PROCESSID=%u", server.pid())},
                    .watched = false,
                    .streams = Streams::Unread});
    EXPECT_TRUE(waitUntilDelivered(cases_.size()));
    server.end();
    run.process().closeOutput();
    EXPECT_EQ(run.waitForEnd(), 99u);
}

TEST_F(SurroundingsTest, AReaderThatHasGoneOrNeverWasIsNotNoticed)
{
    for (const Streams streams : {Streams::Unread, Streams::NoOutput}) {
        driver.reset();
        push(cases_);
        MonitorRun run(everything().text(), {.streams = streams});
        run.process().closeOutput();
        EXPECT_TRUE(waitUntilDelivered(cases_.size()));
        // What went wrong with these is known by now.
        push(cases_);
        EXPECT_TRUE(waitUntilDelivered(2 * cases_.size()));
        EXPECT_EQ(run.stop(), 0u);
        EXPECT_EQ(run.errors(), "");
    }
}

} // namespace

} // namespace velmox::e2e
