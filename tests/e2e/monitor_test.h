#pragma once

#include "testbed/driver_control.h"
#include "testbed/driver_service.h"
#include "tests/e2e/monitor_run.h"

namespace velmox::e2e {

/// A process number that no process of the tests' prefix has.
inline constexpr std::uint32_t kUnknownPid = 0x00ABCDE1;

/// A record and what is to stand of it in the stream; nothing if it is not reported.
struct Case
{
    testbed::RecordFields record;
    std::optional<ExpectedEvent> event;
};

std::vector<ExpectedEvent> eventsOf(const std::vector<Case> &cases);

/// A stanza that lets everything through.
Params everyOperation();
InputDocument everything();

/// The record's key as the stream shows it, with its pid and the text of success.
ExpectedBody bodyOf(const testbed::RecordFields &record);
Str statusText(int status, unsigned error);
void expectLogged(const Str &log, const Str &message);

/// Runs of the monitor with the stand-in driver, which runs for all tests of a class, survives the monitor's
/// exit and is fresh for each test.
class MonitorTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    MonitorTest() { driver.reset(); }

    void push(const std::vector<Case> &cases);
    /// Whether a monitor has come to read, or has read so many records.
    bool waitUntilPolled() const;
    bool waitUntilDelivered(std::size_t records) const;
    /// Pushes the records, runs the monitor until all expected events have come, and compares the stream, the
    /// exit code and nothing else. Returns the log.
    Str check(const InputDocument &document, const std::vector<Case> &cases, const RunOptions &options = {});

    testbed::TestDriver driver;
};

} // namespace velmox::e2e
