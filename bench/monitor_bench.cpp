// How fast the installed program takes records off the stand-in driver, beside a bare loop of reads in the
// same run.
//
//     monitor_bench [THOUSANDS_OF_RECORDS [ROUNDS]]

#include "testbed/driver_control.h"
#include "testbed/driver_service.h"
#include "tests/e2e/monitor_run.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <psapi.h>

namespace velmox {
namespace {

using Clock = std::chrono::steady_clock;
using testbed::Bytes;
using testbed::RecordFields;
using testbed::TestDriver;

constexpr DWORD kReadSize = 8192;
constexpr unsigned kThousand = 1000;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

RecordFields record(const char16_t *key)
{
    RecordFields fields;
    fields.name = std::u16string(u"\\REGISTRY\\MACHINE\\SOFTWARE\\") + key + u"\\Settings\\Value";
    fields.data = testbed::stringData(u"some text");
    return fields;
}

// A thousand records of which the last one is accepted.
Bytes thousandRecords()
{
    Bytes buffer;
    for (unsigned i = 1; i < kThousand; ++i) {
        testbed::appendRecord(buffer, record(u"NobodyWatchesThis"));
    }
    testbed::appendRecord(buffer, record(u"Watched0"));
    return buffer;
}

void fill(TestDriver &driver, unsigned thousands)
{
    driver.reset();
    driver.closeGate();
    driver.push(thousandRecords(), thousands);
    driver.push(testbed::recordBuffer({record(u"Watched0\\Sentinel")}));
}

Str document(unsigned stanzas)
{
    e2e::InputDocument input;
    for (unsigned i = 0; i < stanzas; ++i) {
        input.stanza(Str::fromFormat("WinRegMon://bench%u", i),
                     {{"hive", Str::fromFormat("HKLM\\\\Software\\\\Watched%u\\\\.*", i)}, {"type", "set"}});
    }
    return input.checkpointDir("C:\\velmox").text();
}

// The seconds from the first read that finds something to the sentinel's event.
double monitorSeconds(unsigned stanzas, unsigned thousands, double &workingSetMiB)
{
    TestDriver driver;
    fill(driver, thousands);
    e2e::MonitorRun run(document(stanzas));
    driver.waitFor([](const VelmoxTestState &state) { return state.reads > 0; });
    driver.openGate();
    driver.waitFor([](const VelmoxTestState &state) { return state.recordsDelivered > 0; });
    const auto start = Clock::now();
    run.process().waitForOutput([](const Str &text) { return text.contains("Sentinel"); });
    const double seconds = secondsSince(start);
    PROCESS_MEMORY_COUNTERS memory = {};
    GetProcessMemoryInfo(run.process().handle(), &memory, sizeof memory);
    workingSetMiB = static_cast<double>(memory.WorkingSetSize) / (1 << 20);
    run.stop();
    return seconds;
}

double bareSeconds(unsigned thousands)
{
    TestDriver driver;
    fill(driver, thousands);
    driver.setFilter(testbed::everything());
    driver.openGate();
    const auto start = Clock::now();
    while (!driver.read(kReadSize).bytes.empty()) {
    }
    return secondsSince(start);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void measure(unsigned stanzas, unsigned thousands, unsigned rounds)
{
    std::vector<double> monitor;
    std::vector<double> ratios;
    double workingSetMiB = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        const double bare = bareSeconds(thousands);
        monitor.push_back(monitorSeconds(stanzas, thousands, workingSetMiB));
        ratios.push_back(bare / monitor.back());
    }
    std::printf("| %3u stanzas | %6.2f us a record | %.2f of the bare loop | %.0f MiB |\n", stanzas,
                median(monitor) / thousands / kThousand * 1e6, median(ratios), workingSetMiB);
    std::fflush(stdout);
}

} // namespace
} // namespace velmox

int main(int count, char **arguments)
{
    const unsigned thousands = count > 1 ? static_cast<unsigned>(std::atoi(arguments[1])) : 200;
    const unsigned rounds = count > 2 ? static_cast<unsigned>(std::atoi(arguments[2])) : 5;
    velmox::testbed::startDriverService();
    velmox::testbed::keepDriverService();
    for (const unsigned stanzas : {1u, 20u, 200u}) {
        velmox::measure(stanzas, thousands, rounds);
    }
    velmox::testbed::removeDriverService();
}
