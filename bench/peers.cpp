// How fast parts of the program are beside libraries for the same work, natively and in the same run.
//
//     peers [ROUNDS]
//
// A ratio above 1 says that the program's part is the faster one.

#include "bench/peers.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>

int main(int count, char **arguments)
{
    using namespace velmox::bench;
    const auto rounds = static_cast<unsigned>(std::max(1, count > 1 ? std::atoi(arguments[1]) : 5));
    try {
        Figures figures;
        for (const auto measure : {measureXml, measureLog, measureFilters}) {
            const Figures more = measure(rounds);
            figures.insert(figures.end(), more.begin(), more.end());
        }
        printTable(figures);
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "peers: %s\n", exception.what());
        return 1;
    }
}
