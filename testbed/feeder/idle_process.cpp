// idle-process
//
// Prints its process number, then does nothing until its standard input ends: the process that a monitor
// watches when its starter is no Windows program.

#include "util/system/windows_api.h"

#include <cstdio>

int main()
{
    std::printf("%lu\n", GetCurrentProcessId());
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
