#include "bench/baseline.h"

#include "bench/program.h"
#include "tests/e2e/input_document.h"

#include <stdexcept>

namespace velmox::bench {

namespace {

constexpr char kOutputFile[] = "C:\\bench-output.txt";

Str baselineOf(const char *hive)
{
    return e2e::InputDocument()
        .stanza("WinRegMon://bench", {{"hive", hive}, {"baseline", "1"}, {"baseline_interval", "0"}})
        .checkpointDir("C:\\velmox")
        .text();
}

// From the start of the program to its first poll of the device, which comes behind the baseline.
double monitorSeconds(const Str &document)
{
    testbed::TestDriver driver;
    driver.reset();
    driver.closeGate();
    const FileHandle output = createOutputFile(kOutputFile);
    const Program monitor(monitorCommand(), output.get(), document);
    return secondsBetween(monitor.startTicks(), waitForPoll(driver));
}

} // namespace

double programSeconds(const Str &commandLine)
{
    const FileHandle output = createOutputFile(kOutputFile);
    const Program program(commandLine, output.get());
    program.waitForEnd();
    return secondsBetween(program.startTicks(), ticksNow());
}

Str exportCommand()
{
    return "reg export HKLM C:\\bench-export.reg /y";
}

Str walkCommand()
{
    return neighbourCommand("bench_reference", "walk");
}

Figures measureBaseline(const Options &options)
{
    Figure all("baseline of HKLM, every value accepted, into a file", "reg export HKLM", {2, 8}, "s");
    Figure few("baseline of HKLM, 1 value in 1000 accepted", "bare walk of the same keys and values",
               {0.7, 0.95}, "s");
    for (unsigned round = 0; round < options.rounds; ++round) {
        const double exported = programSeconds(exportCommand());
        const double everything = monitorSeconds(baselineOf("HKLM\\\\.*"));
        all.add(exported / everything, everything);
        const double walked = programSeconds(walkCommand());
        const double one = monitorSeconds(baselineOf("HKLM\\\\.*\\\\\\{000214[ef][^\\\\]*\\\\.*"));
        few.add(walked / one, one);
    }
    return {all, few};
}

Figures measureStart(const Options &options)
{
    Figure start("start to first poll of the device, no baseline", "start and end of an empty program",
                 {3, 1.5, true}, "ms");
    for (unsigned round = 0; round < 4 * options.rounds; ++round) {
        const double empty = programSeconds(neighbourCommand("bench_empty"));
        const double seconds = monitorSeconds(watchedKeys(20));
        start.add(seconds / empty, seconds * 1e3);
    }
    return {start};
}

} // namespace velmox::bench
