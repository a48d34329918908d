// What the main thread's work on a record costs, inside the process: no driver, no reader, no other process.
//
//     cost_bench [ROUNDS]

#include "bench/cost.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>

int main(int count, char **arguments)
{
    using namespace velmox::bench;
    const auto rounds = static_cast<unsigned>(std::max(1, count > 1 ? std::atoi(arguments[1]) : 5));
    try {
        printTable(measureCost(rounds));
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "cost_bench: %s\n", exception.what());
        return 1;
    }
}
