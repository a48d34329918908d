#include "tests/e2e/monitor_test.h"

namespace velmox::e2e {

std::vector<ExpectedEvent> eventsOf(const std::vector<Case> &cases)
{
    std::vector<ExpectedEvent> events;
    for (const Case &one : cases) {
        if (one.event) {
            events.push_back(*one.event);
        }
    }
    return events;
}

Params everyOperation()
{
    return {{"proc", ".*"}, {"hive", ".*"}, {"type", "rename|set|delete|create|query|open|close|unknown"}};
}

InputDocument everything()
{
    return InputDocument().stanza("WinRegMon://all", everyOperation());
}

ExpectedBody bodyOf(const testbed::RecordFields &record)
{
    Str key = Str::fromUtf16(record.name);
    key.replaceAll("\\REGISTRY\\MACHINE", "HKLM");
    return {.status = statusText(0, ERROR_SUCCESS), .pid = record.pid, .keyPath = key};
}

Str statusText(int status, unsigned error)
{
    Str text = Str::fromFormat("(%d)", status);
    text.appendErrorText(error);
    return text;
}

void expectLogged(const Str &log, const Str &message)
{
    EXPECT_TRUE(log.contains(message)) << "not in the log: " << message.c_str() << "\n" << log.c_str();
}

void MonitorTest::SetUpTestSuite()
{
    testbed::startDriverService();
    testbed::keepDriverService();
}

void MonitorTest::TearDownTestSuite()
{
    testbed::removeDriverService();
}

void MonitorTest::push(const std::vector<Case> &cases)
{
    testbed::Bytes records;
    for (const Case &one : cases) {
        testbed::appendRecord(records, one.record);
    }
    driver.pushUnfiltered(records);
}

bool MonitorTest::waitUntilPolled() const
{
    return driver.waitFor([](const VelmoxTestState &state) { return state.reads != 0; });
}

bool MonitorTest::waitUntilDelivered(std::size_t records) const
{
    return driver.waitFor(
        [records](const VelmoxTestState &state) { return state.recordsDelivered >= records; });
}

Str MonitorTest::check(const InputDocument &document, const std::vector<Case> &cases,
                       const RunOptions &options)
{
    const std::vector<ExpectedEvent> expected = eventsOf(cases);
    push(cases);
    MonitorRun run(document.text(), options);
    EXPECT_TRUE(run.waitForEvents(expected.size())) << run.log().c_str();
    EXPECT_TRUE(driver.waitFor(
        [](const VelmoxTestState &state) { return state.recordsWaiting == 0 && state.readsEmpty != 0; }));
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(run.output(), expectedStream(expected)) << run.log().c_str();
    return run.log();
}

} // namespace velmox::e2e
