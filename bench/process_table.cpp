#include "bench/process_table.h"

#include "bench/program.h"
#include "pipeline/input/events/process_image_table.h"

namespace velmox::bench {

namespace {

constexpr unsigned kFew = 10;
constexpr unsigned kMany = 1000;
constexpr unsigned kLookups = 1'000'000;

// Nanoseconds a look-up, each process in turn.
double lookupNanoseconds(unsigned processes)
{
    ProcessImageTable &table = ProcessImageTable::instance();
    table.init();
    for (unsigned i = 0; i < processes; ++i) {
        table.add(4 * i, u"\\Device\\HarddiskVolume1\\Program Files\\Some Product\\program.exe");
    }
    char16_t image[kImageUnits];
    const std::uint64_t start = ticksNow();
    for (unsigned i = 0; i < kLookups; ++i) {
        table.lookup(4 * (i % processes), image, kImageUnits);
    }
    const double seconds = secondsBetween(start, ticksNow());
    table.destroy();
    return seconds / kLookups * 1e9;
}

} // namespace

Figures measureProcessTable(const Options &options)
{
    Figure growth("look-up of a process among 1000", "among 10", {2, 1.1, true}, "ns");
    for (unsigned round = 0; round < options.rounds; ++round) {
        const double few = lookupNanoseconds(kFew);
        const double many = lookupNanoseconds(kMany);
        growth.add(many / few, many);
    }
    return {growth};
}

} // namespace velmox::bench
