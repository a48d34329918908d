// How fast the installed program is, beside references that are measured in the same run.
//
//     monitor_bench [--rounds N] [--records THOUSANDS] [--events THOUSANDS] [SUBJECT...]
//
// Prints one table of all subjects, or of those that are named.

#include "bench/baseline.h"
#include "bench/bounds.h"
#include "bench/events.h"
#include "bench/flood.h"
#include "bench/process_table.h"
#include "bench/store.h"
#include "testbed/driver_service.h"
#include "util/system/windows_api.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

namespace velmox::bench {
namespace {

struct Subject
{
    std::string_view name;
    Figures (*measure)(const Options &options);
};

constexpr Subject kSubjects[] = {
    {"flood", measureFlood},   {"events", measureEvents}, {"baseline", measureBaseline},
    {"start", measureStart},   {"growth", measureGrowth}, {"processes", measureProcessTable},
    {"bounds", measureBounds}, {"store", measureStore},
};

struct Number
{
    std::string_view option;
    unsigned Options::*member;
};

constexpr Number kNumbers[] = {
    {"--rounds", &Options::rounds},
    {"--records", &Options::thousandRecords},
    {"--events", &Options::thousandEvents},
};

struct CommandLine
{
    Options options;
    std::vector<Subject> subjects;
};

// False for an argument that is not known.
bool scan(const std::vector<std::string_view> &arguments, CommandLine &out)
{
    for (auto at = arguments.begin(); at != arguments.end(); ++at) {
        const auto *subject = std::ranges::find(kSubjects, *at, &Subject::name);
        const auto *number = std::ranges::find(kNumbers, *at, &Number::option);
        if (subject != std::end(kSubjects)) {
            out.subjects.push_back(*subject);
        } else if (number != std::end(kNumbers) && at + 1 != arguments.end()) {
            out.options.*number->member = static_cast<unsigned>(std::max(1, std::atoi((++at)->data())));
        } else {
            return false;
        }
    }
    if (out.subjects.empty()) {
        out.subjects.assign(std::begin(kSubjects), std::end(kSubjects));
    }
    return true;
}

void measure(const CommandLine &commandLine)
{
    SetEnvironmentVariableW(L"VELMOX_HOME", L"C:\\velmox");
    SetEnvironmentVariableW(L"VELMOXD_PROCESSID", nullptr);
    testbed::startDriverService();
    testbed::keepDriverService();
    Figures figures;
    for (const Subject &subject : commandLine.subjects) {
        const Figures more = subject.measure(commandLine.options);
        figures.insert(figures.end(), more.begin(), more.end());
    }
    testbed::removeDriverService();
    printTable(figures);
}

} // namespace
} // namespace velmox::bench

int main(int count, char **arguments)
{
    velmox::bench::CommandLine commandLine;
    if (!velmox::bench::scan({arguments + 1, arguments + count}, commandLine)) {
        std::fprintf(stderr, "usage: monitor_bench [--rounds N] [--records THOUSANDS] [--events THOUSANDS] "
                             "[flood] [events] [baseline] [start] [growth] [processes] [bounds] [store]\n");
        return 2;
    }
    try {
        velmox::bench::measure(commandLine);
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "monitor_bench: %s\n", exception.what());
        return 1;
    }
}
