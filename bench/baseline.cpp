#include "bench/baseline.h"

#include "bench/program.h"
#include "tests/e2e/input_document.h"

#include <algorithm>
#include <fstream>
#include <vector>

namespace velmox::bench {

namespace {

constexpr char kOutputFile[] = "C:\\bench-output.txt";
constexpr char kEventFile[] = "C:\\bench-event.txt";

Str baselineOf(const char *hive)
{
    return e2e::InputDocument()
        .stanza("WinRegMon://bench", {{"hive", hive}, {"baseline", "1"}, {"baseline_interval", "0"}})
        .checkpointDir("C:\\velmox")
        .text();
}

/// Keeps one event of those that the monitor left in the output file, of their mean length.
void keepMeanEvent()
{
    std::vector<std::string> events(1);
    std::size_t bytes = 0;
    std::ifstream file(kOutputFile);
    for (std::string line; std::getline(file, line);) {
        bytes += line.size() + 1;
        events.back() += line + '\n';
        if (line == "</event>") {
            events.emplace_back();
        }
    }
    events.pop_back();
    const std::size_t mean = bytes / std::max<std::size_t>(events.size(), 1);
    const auto distance = [mean](const std::string &event) {
        return std::max(event.size(), mean) - std::min(event.size(), mean);
    };
    std::ofstream(kEventFile) << *std::ranges::min_element(events, {}, distance);
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

Str walkCommand(const char *writtenFile)
{
    return neighbourCommand("bench_reference", Str::concat("walk ", writtenFile));
}

Figures measureBaseline(const Options &options)
{
    constexpr Goal kGoal = {0.85, 0.95};
    Figure all("baseline of HKLM, every value accepted, into a file",
               "bare walk of the same keys and values, an event written and flushed for each", kGoal, "s");
    Figure few("baseline of HKLM, 1 value in 1000 accepted", "bare walk of the same keys and values", kGoal,
               "s");
    for (unsigned round = 0; round < options.rounds; ++round) {
        const double everything = monitorSeconds(baselineOf("HKLM\\\\.*"));
        keepMeanEvent();
        const double written = programSeconds(walkCommand(kEventFile));
        all.add(written / everything, everything);
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
    Figure more("the same with 200 stanzas, ms more than with 1", "", {50, 20, true}, "ms");
    for (unsigned round = 0; round < 4 * options.rounds; ++round) {
        const double empty = programSeconds(neighbourCommand("bench_empty"));
        const double seconds = monitorSeconds(watchedKeys(20));
        start.add(seconds / empty, seconds * 1e3);
        const double one = monitorSeconds(watchedKeys(1));
        const double milliseconds = (monitorSeconds(watchedKeys(200)) - one) * 1e3;
        more.add(milliseconds, milliseconds);
    }
    return {start, more};
}

} // namespace velmox::bench
