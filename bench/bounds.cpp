#include "bench/bounds.h"

#include "bench/baseline.h"
#include "bench/program.h"

#include <psapi.h>

namespace velmox::bench {

namespace {

// These figures are the system's, not the program's.
constexpr Goal kNoGoal = {};

void queryMemory()
{
    PROCESS_MEMORY_COUNTERS memory = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
}

} // namespace

Figures measureBounds(const Options &options)
{
    const Flood flood{options.thousandRecords};
    Figure reads("bare loop of reads with a query of the working set after each", "without", kNoGoal,
                 "million a second");
    Figure walk("bare walk of HKLM, keys and values", "reg export HKLM", kNoGoal, "s");
    Figure start("start and end of a program that asks for the boot mode", "of an empty one", kNoGoal, "ms");
    for (unsigned round = 0; round < options.rounds; ++round) {
        const double bare = bareSeconds(flood);
        const double queried = bareSeconds(flood, queryMemory);
        reads.add(bare / queried, flood.records() / queried / 1e6);
        const double exported = programSeconds(exportCommand());
        const double walked = programSeconds(walkCommand());
        walk.add(exported / walked, walked);
        const double empty = programSeconds(neighbourCommand("bench_empty"));
        const double bootMode = programSeconds(neighbourCommand("bench_boot_mode"));
        start.add(bootMode / empty, bootMode * 1e3);
    }
    return {reads, walk, start};
}

} // namespace velmox::bench
