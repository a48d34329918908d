#pragma once

#include <string>
#include <vector>

namespace velmox {

/// `velmox-capture`: reads the words behind the program's name, does what they say, and returns the exit
/// code: 0; 1 for a recording or a stream that ended before its time; 2 for what could not be begun or read.
int runCapture(const std::vector<std::string> &words);

} // namespace velmox
