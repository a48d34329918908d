#include "tests/e2e/monitor_test.h"
#include "tests/support/file_tree.h"
#include "tests/support/scoped_folder.h"

namespace velmox::e2e {

namespace {

using testbed::RecordFields;
using velmox::testing::readWhole;
using velmox::testing::ScopedFolder;
using velmox::testing::writeTree;

constexpr char kLogConfiguration[] = "etc\\log-cmdline.cfg";

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

    /// An installation of the test's own, as far as the running program needs one.
    static void makeInstallation(const ScopedFolder &home)
    {
        writeTree(home.path(),
                  {{kLogConfiguration, readWhole(Pathname::fromUtf8(kHome).join(kLogConfiguration))},
                   {"var\\log\\velmox\\other.log", ""}});
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

TEST_F(SurroundingsTest, ALogThatCannotBeWrittenCostsNoEvent)
{
    for (const bool isFolder : {false, true}) {
        const ScopedFolder home;
        makeInstallation(home);
        // Where the log's folder should be, or the log.
        const Pathname log = home / "var\\log\\velmox\\velmox-regmon.log";
        if (isFolder) {
            ASSERT_TRUE(CreateDirectoryW(asWide(log), nullptr));
        } else {
            ASSERT_TRUE(MoveFileExW(asWide(home / "var"), asWide(home / "no-var"), 0));
        }
        driver.reset();
        push(cases_);
        MonitorRun run(everything().text(), {.home = home.path().toStr()});
        EXPECT_TRUE(run.waitForEvents(cases_.size()));
        EXPECT_EQ(run.stop(), 0u);
        EXPECT_EQ(run.output(), expectedStream(eventsOf(cases_)));
        EXPECT_TRUE(
            run.errors().startsWith(Str::fromFormat("ERROR - Error opening \"%s\": ", log.toStr().c_str())))
            << run.errors().c_str();
    }
}

TEST_F(SurroundingsTest, AnInstallationMayVanish)
{
    const ScopedFolder home;
    const ScopedFolder elsewhere;
    makeInstallation(home);
    MonitorRun run(everything().text(), {.home = home.path().toStr()});
    EXPECT_TRUE(run.waitForEvents(cases_.size()));
    for (const char *part : {"etc", "var"}) {
        EXPECT_TRUE(MoveFileExW(asWide(home / part), asWide(elsewhere / part), 0)) << part;
    }
    push(cases_);
    EXPECT_TRUE(run.waitForEvents(2 * cases_.size()));
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(occurrences(run.output(), "</event>"), 2 * cases_.size());
    EXPECT_TRUE(run.output().endsWith("</stream>\r\n"));
    EXPECT_EQ(run.errors(), "");
    // The log is still open.
    expectLogged(readWhole(elsewhere / "var\\log\\velmox\\velmox-regmon.log"), "Monitor Worker Exiting...");
}

} // namespace

} // namespace velmox::e2e
